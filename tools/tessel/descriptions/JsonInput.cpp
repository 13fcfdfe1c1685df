#include "descriptions/JsonInput.h"

#include "descriptions/DescriptionFile.h"
#include "text/WrittenJson.h"

#include <QFile>
#include <QFileInfo>

namespace {

/// More than the values of a device of a million leaves, and less than what a device like /dev/zero has.
constexpr int mostBytes = 512 * 1024 * 1024;

/// What a file holds, or standard input for "-".
QByteArray textOf(const QString &path)
{
    constexpr int pieceSize = 1024 * 1024;
    QFile file(path);
    const bool isOpen = path == QLatin1String("-") ? file.open(0, QIODevice::ReadOnly)
                                                   : file.open(QIODevice::ReadOnly);
    if (!isOpen) {
        refusePath(QFileInfo::exists(path) ? ExitCode::NoAccess : ExitCode::NotFound, path,
                   file.errorString());
    }
    QByteArray text;
    for (QByteArray piece = file.read(pieceSize); !piece.isEmpty(); piece = file.read(pieceSize)) {
        text += piece;
        if (text.size() > mostBytes) {
            refusePath(ExitCode::InputOutputFile, path,
                       QStringLiteral("is larger than %1 MiB").arg(mostBytes / pieceSize));
        }
    }
    if (file.error() != QFileDevice::NoError) {
        refusePath(ExitCode::InputOutputFile, path, file.errorString());
    }
    return text;
}

} // namespace

QJsonDocument jsonInput(const QString &path)
{
    const QByteArray text = textOf(path);
    const QString problem = jsonProblem(text);
    if (!problem.isEmpty()) {
        refusePath(ExitCode::InputOutputFile, path, problem);
    }
    const QStringList repeated = WrittenJson::repeatedKeys(text);
    if (!repeated.isEmpty()) {
        refusePath(ExitCode::InputOutputFile, path,
                   QStringLiteral("'%1' is given twice").arg(repeated.constFirst()));
    }
    return QJsonDocument::fromJson(WrittenJson::withoutLosses(text));
}
