#pragma once

#include <QFile>
#include <QString>

#include <sys/stat.h>
#include <unistd.h>

/// Makes the file behind @p fd, which is about to take the place of the one at @p path, belong to
/// the same user and group, with the same mode.
///
/// Else a change that root makes would lock out the service to which the file belongs. Only root may
/// give files away, and other users may choose among groups of their own: what the system does not
/// allow stays as it is. To be called when everything is written, as writing takes bits of the mode.
inline void keepFormerOwner(int fd, const QString &path)
{
    struct stat former = {};
    if (::stat(QFile::encodeName(path).constData(), &former) != 0 || !S_ISREG(former.st_mode)) {
        return;
    }
    constexpr auto unchanged = static_cast<uid_t>(-1);
    const bool isOwnerKept = ::fchown(fd, former.st_uid, former.st_gid) == 0;
    const bool isGroupKept = isOwnerKept || ::fchown(fd, unchanged, former.st_gid) == 0;
    // The bits that lend the rights of owner and group are not handed to another one.
    const mode_t lending = (isOwnerKept ? S_ISUID : 0U) | (isGroupKept ? S_ISGID : 0U);
    ::fchmod(fd, former.st_mode & (S_IRWXU | S_IRWXG | S_IRWXO | lending));
}
