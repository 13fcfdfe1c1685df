#include "commands/ResultFile.h"

#include "Companion/PropertyManagerConst.h"
#include "descriptions/DescriptionFile.h"
#include "descriptions/ReplacedFile.h"
#include "text/Failure.h"
#include "text/Output.h"

#include <QFile>
#include <QFileInfo>

#include <cerrno>

#include <unistd.h>

namespace {

const QLatin1String standardOutput("-");

/// What a link leads to, as it is that what is replaced; there need not be anything yet.
QFileInfo targetOf(const QString &path)
{
    constexpr int mostLinks = 40; // as many as the system follows
    QFileInfo target(path);
    for (int links = 0; target.isSymLink() && links < mostLinks; ++links) {
        target.setFile(target.symLinkTarget());
    }
    return target;
}

[[noreturn]] void refuse(const QString &path, int error)
{
    switch (error) {
    case ENOENT:
    case ENOTDIR: refusePath(ExitCode::NotFound, path, QStringLiteral("no such folder"));
    case EACCES:
    case EPERM: refusePath(ExitCode::NoAccess, path, QStringLiteral("no permission to write it"));
    case 0: refusePath(ExitCode::InputOutputFile, path, QStringLiteral("cannot be written"));
    default:
        refusePath(ExitCode::InputOutputFile, path,
                   QStringLiteral("cannot be written: %1").arg(qt_error_string(error)));
    }
}

bool hasNameOfDescription(const QFileInfo &file)
{
    return file.fileName().endsWith(PropertyManagerConst::getProcessDataDescriptionFileExtension())
           || file.fileName().endsWith(PropertyManagerConst::getConfigFileExtension());
}

void requireReplaceable(const QString &path)
{
    const QFileInfo target = targetOf(path);
    // Most likely the FILE that was to be read: it would be lost.
    if (hasNameOfDescription(target)) {
        refusePath(ExitCode::WrongUse, path,
                   QStringLiteral("is the name of a description; name another file for the "
                                  "result"));
    }
    // A device or a FIFO would be put out of its place by the file.
    if (target.isSymLink() || (target.exists() && !target.isFile())) {
        refusePath(ExitCode::InputOutputFile, path, QStringLiteral("is no regular file"));
    }
    // Behind the slash a file is none.
    const QByteArray folder = QFile::encodeName(target.absolutePath() + QLatin1String("/."));
    if (::access(folder.constData(), W_OK | X_OK) != 0) {
        refuse(path, errno);
    }
    const QByteArray file = QFile::encodeName(target.absoluteFilePath());
    if (target.exists() && ::access(file.constData(), W_OK) != 0) {
        refuse(path, errno);
    }
}

} // namespace

ResultFile::ResultFile(const QString &command, const QString &option, const QString &path)
    : m_path(path)
{
    if (path.isEmpty()) {
        throw Failure{
            ExitCode::WrongUse,
            QStringLiteral("%1: --%2 is empty; name a file, or - for standard output; see "
                           "'tessel %1 --help'")
                .arg(command, option)};
    }
    if (path != standardOutput) {
        requireReplaceable(path);
    }
}

void ResultFile::write(const QString &text) const
{
    if (m_path == standardOutput) {
        writeOutput(text);
        return;
    }
    errno = 0;
    if (!replaceFile(m_path, text.toUtf8())) {
        refuse(m_path, errno);
    }
}
