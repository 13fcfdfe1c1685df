#include "descriptions/DescriptionFile.h"

#include "Companion/PropertyManagerConst.h"
#include "text/Failure.h"
#include "text/LogCollector.h"

#include <QFile>
#include <QFileInfo>
#include <QJsonDocument>

#include <algorithm>

void refusePath(ExitCode code, const QString &path, const QString &reason)
{
    throw Failure{code, QStringLiteral("%1: %2").arg(path, reason)};
}

void requireDescriptionFile(const QString &path)
{
    const QFileInfo file(path);
    if (!file.exists()) {
        refusePath(ExitCode::NotFound, path, QStringLiteral("no such file"));
    }
    if (file.isDir()) {
        refusePath(ExitCode::InputOutputFile, path,
                   QStringLiteral("is a folder; name a description file"));
    }
    if (!file.isFile()) {
        refusePath(ExitCode::InputOutputFile, path, QStringLiteral("is no regular file"));
    }
    if (!file.isReadable()) {
        refusePath(ExitCode::NoAccess, path, QStringLiteral("no permission to read it"));
    }
    const QString postfix = QLatin1Char('.')
                            + PropertyManagerConst::getProcessDataDescriptionFileExtension();
    if (!file.fileName().endsWith(postfix)) {
        refusePath(ExitCode::InputOutputFile, path,
                   QStringLiteral("no process description; its name must end in %1").arg(postfix));
    }
}

QString jsonProblem(const QByteArray &text)
{
    QJsonParseError error;
    QJsonDocument::fromJson(text, &error);
    if (error.error == QJsonParseError::NoError) {
        return {};
    }
    // The offset counts the character that does not fit.
    const QByteArray before = text.left(std::max(error.offset - 1, 0));
    return QStringLiteral("line %1, column %2: %3")
        .arg(before.count('\n') + 1)
        .arg(before.size() - before.lastIndexOf('\n'))
        .arg(error.errorString());
}

QString parseProblem(const QString &path)
{
    const QString reasons = LogCollector::takeReasons();
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        return reasons;
    }
    const QString problem = jsonProblem(file.readAll());
    return problem.isEmpty() ? reasons : problem;
}
