#include "service/SecretFile.h"

#include "service/Refusal.h"

#include <QFile>
#include <QFileInfo>

namespace {

constexpr qint64 mostBytes = 4096;

QString firstLineOf(const QString &path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        throw Refusal{ExitCode::NoAccess,
                      QStringLiteral("%1: %2; the user of this program has to be able to read it")
                          .arg(path, file.errorString())};
    }
    QByteArray line = file.readLine(mostBytes);
    while (line.endsWith('\n') || line.endsWith('\r')) {
        line.chop(1);
    }
    if (line.isEmpty()) {
        throw Refusal{ExitCode::InputOutputFile,
                      QStringLiteral("%1: its first line is empty").arg(path)};
    }
    return QString::fromUtf8(line);
}

/// What the service manager handed out, to the user of the unit alone: by a list of access rights, whose mask looks
/// like a right of the group.
bool isCredential(const QString &path)
{
    const QString folder = qEnvironmentVariable("CREDENTIALS_DIRECTORY");
    return !folder.isEmpty()
           && QFileInfo(QFileInfo(path).path()).canonicalFilePath()
                  == QFileInfo(folder).canonicalFilePath();
}

} // namespace

void SecretFile::requireReadable(const QString &path)
{
    const QFileInfo info(path);
    if (!info.isFile()) {
        throw Refusal{ExitCode::NotFound, QStringLiteral("%1: no such file").arg(path)};
    }
    if (!info.isReadable()) {
        throw Refusal{ExitCode::NoAccess,
                      QStringLiteral("%1: no permission to read it; give the user of this program "
                                     "a group that may")
                          .arg(path)};
    }
}

void SecretFile::check(const QString &path)
{
    requireReadable(path);
    const QFile::Permissions open = QFile::ReadOther | QFile::WriteOther | QFile::ExeOther
                                    | QFile::WriteGroup;
    if ((QFile::permissions(path) & open) != 0) {
        throw Refusal{ExitCode::NoAccess,
                      QStringLiteral("%1: others may read or change it; 'chmod 600' or, for a "
                                     "group of its own, 'chmod 640' it")
                          .arg(path)};
    }
}

QString SecretFile::firstLine(const QString &path)
{
    check(path);
    return firstLineOf(path);
}

QString SecretFile::firstLineForOwner(const QString &path)
{
    requireReadable(path);
    QFile::Permissions open = QFile::ReadOther | QFile::WriteOther | QFile::ExeOther
                              | QFile::ReadGroup | QFile::WriteGroup | QFile::ExeGroup;
    if (isCredential(path)) {
        open &= ~QFile::Permissions(QFile::ReadGroup);
    }
    if ((QFile::permissions(path) & open) != 0) {
        throw Refusal{ExitCode::NoAccess,
                      QStringLiteral("%1: others than its owner may read or change it; 'chmod 600' "
                                     "it")
                          .arg(path)};
    }
    return firstLineOf(path);
}
