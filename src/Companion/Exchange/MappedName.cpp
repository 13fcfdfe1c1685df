#include "Companion/Exchange/MappedName_p.h"

#include <QByteArray>
#include <QFile>

#include <cstdint>

#include <sys/stat.h>

namespace {

// A line reads "start-end rwxs offset device inode   path", with " (deleted)" behind the path of a
// file whose name was removed or given to another file.
constexpr int deviceField = 3;
constexpr int inodeField = 4;

bool holdsAddress(const QByteArray &line, std::uintptr_t address)
{
    const int dash = line.indexOf('-');
    const int blank = line.indexOf(' ');
    if (dash < 0 || blank < dash) {
        return false;
    }
    const qulonglong start = line.left(dash).toULongLong(nullptr, 16);
    const qulonglong end = line.mid(dash + 1, blank - dash - 1).toULongLong(nullptr, 16);
    return start <= address && address < end;
}

/// The line of the mapping at @p address; empty if there is none.
QByteArray findLine(const void *address)
{
    // That of the process is empty once its main thread has ended.
    QFile table(QStringLiteral("/proc/thread-self/maps"));
    if (!table.open(QIODevice::ReadOnly)) {
        return {};
    }
    // Such a file has no size: it ends where nothing more comes.
    QByteArray line = table.readLine();
    while (!line.isEmpty() && !holdsAddress(line, reinterpret_cast<std::uintptr_t>(address))) {
        line = table.readLine();
    }
    return line;
}

quint64 inodeOf(const QByteArray &line)
{
    return line.simplified().split(' ').value(inodeField, "0").toULongLong();
}

MappedMemory memoryOf(const QByteArray &line, const void *address)
{
    const quint64 inode = inodeOf(line);
    return inode != 0 ? MappedMemory(line.simplified().split(' ').value(deviceField), inode)
                      : MappedMemory(QByteArray(), reinterpret_cast<std::uintptr_t>(address));
}

bool isNamed(const QByteArray &line)
{
    return inodeOf(line) != 0 && !line.endsWith(" (deleted)\n");
}

} // namespace

bool hasMappedName(const void *address)
{
    return isNamed(findLine(address));
}

std::optional<bool> findMappedName(const void *address)
{
    const QByteArray line = findLine(address);
    return line.isEmpty() ? std::nullopt : std::make_optional(isNamed(line));
}

MappedName::MappedName(const void *address)
{
    const QByteArray line = findLine(address);
    m_isKnown = !line.isEmpty();
    m_memory = memoryOf(line, address);
    // No field in front of the path has a slash.
    const int pathBegin = line.indexOf('/');
    if (!isNamed(line) || pathBegin < 0) {
        return;
    }
    const QByteArray path = line.mid(pathBegin).chopped(1);
    // A line break in the name stands there as an escape.
    for (const QByteArray &name : {path, QByteArray(path).replace("\\012", "\n")}) {
        struct stat status = {};
        if (stat(name.constData(), &status) == 0 && status.st_ino == inodeOf(line)) {
            m_path = name;
            m_device = status.st_dev;
            m_inode = status.st_ino;
            return;
        }
    }
}

bool MappedName::isCurrent() const
{
    if (!m_isKnown) {
        return true;
    }
    struct stat status = {};
    return !m_path.isEmpty() && stat(m_path.constData(), &status) == 0 && status.st_dev == m_device
           && status.st_ino == m_inode;
}
