#include "Inspection/ProcessMappings_p.h"

#include <QDir>
#include <QFile>
#include <QList>
#include <QSet>
#include <QString>

#include <algorithm>
#include <cerrno>

#include <fcntl.h>
#include <sys/sysmacros.h>

namespace {

using Mapping = ProcessMappings::Mapping;

/// A line reads "start-end rwxs offset device inode   path", with " (deleted)" behind the path of a file
/// whose name was removed or given to another file. False for memory that is no file.
bool readMapping(const QByteArray &line, Mapping &mapping)
{
    // No field in front of the path has a slash.
    const int path = line.indexOf('/');
    if (path < 0) {
        return false;
    }
    constexpr int deviceField = 3;
    constexpr int inodeField = 4;
    const QList<QByteArray> fields = line.left(path).simplified().split(' ');
    const QList<QByteArray> device = fields.value(deviceField).split(':');
    if (device.size() != 2 || fields.size() <= inodeField) {
        return false;
    }
    constexpr int rightsField = 1;
    mapping.isUnwritable = !fields[rightsField].contains('w');
    mapping.memory = {makedev(device[0].toUInt(nullptr, 16), device[1].toUInt(nullptr, 16)),
                      static_cast<ino_t>(fields[inodeField].toULongLong())};
    mapping.path = line.mid(path);
    if (mapping.path.endsWith('\n')) {
        mapping.path.chop(1);
    }
    const QByteArray mark = QByteArrayLiteral(" (deleted)");
    if (mapping.path.endsWith(mark)) {
        mapping.path.chop(mark.size());
    }
    return true;
}

void addMapping(std::vector<Mapping> &mappings, const QByteArray &line, dev_t device)
{
    Mapping mapping{};
    if (!readMapping(line, mapping) || mapping.memory.device != device) {
        return;
    }
    const auto known = std::find_if(
        mappings.begin(), mappings.end(),
        [&mapping](const Mapping &other) { return other.memory == mapping.memory; });
    if (known == mappings.end()) {
        mappings.push_back(mapping);
    } else {
        known->isUnwritable = known->isUnwritable || mapping.isUnwritable;
    }
}

/// What the table of a process or a thread tells.
enum class Table {
    Read,   ///< It is taken.
    Empty,  ///< There is no memory: it has ended, or the kernel runs it for itself.
    Refused ///< It may not be looked at.
};

Table readTable(ProcessMappings &found, dev_t device)
{
    const QByteArray path = found.folder + "/maps";
    QFile table;
    const int fd = ::open(path.constData(), O_RDONLY | O_CLOEXEC);
    if (fd < 0 || !table.open(fd, QIODevice::ReadOnly, QFileDevice::AutoCloseHandle)) {
        return errno == ENOENT || errno == ESRCH ? Table::Empty : Table::Refused;
    }
    // Such a file has no size: it ends where nothing more comes.
    QByteArray line = table.readLine();
    const bool isEmpty = line.isEmpty();
    for (; !line.isEmpty(); line = table.readLine()) {
        addMapping(found.mappings, line, device);
    }
    return isEmpty ? Table::Empty : Table::Read;
}

QStringList findThreads(const QByteArray &folder)
{
    return QDir(QString::fromLatin1(folder) + QStringLiteral("/task")).entryList(QDir::Dirs);
}

/// Of the first thread that still has the memory of all.
Table readTableOfAThread(ProcessMappings &found, pid_t process, dev_t device)
{
    const QByteArray folder = found.folder;
    QSet<QString> tried{QStringLiteral("."), QStringLiteral(".."), QString::number(process)};
    // One that ends may have made another one before.
    for (bool isNew = true; isNew;) {
        isNew = false;
        const QStringList threads = findThreads(folder);
        for (const auto &thread : threads) {
            if (tried.contains(thread)) {
                continue;
            }
            tried.insert(thread);
            isNew = true;
            found.folder = folder + "/task/" + thread.toLatin1();
            const Table table = readTable(found, device);
            if (table != Table::Empty) {
                return table;
            }
        }
    }
    return Table::Empty;
}

} // namespace

std::optional<ProcessMappings> ProcessMappings::of(pid_t process, dev_t device)
{
    ProcessMappings found;
    found.folder = "/proc/" + QByteArray::number(process);
    Table table = readTable(found, device);
    if (table == Table::Empty) {
        table = readTableOfAThread(found, process, device);
    }
    return table == Table::Refused ? std::nullopt : std::optional<ProcessMappings>(found);
}
