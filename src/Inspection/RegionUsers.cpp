#include "Inspection/RegionUsers.h"

#include "Inspection/ProcessList_p.h"
#include "Inspection/RegionInspectionPrivate_p.h"
#include "ProcessDataManagement/ProcessStart_p.h"

#include <QFile>
#include <QFileInfo>

#include <algorithm>
#include <cerrno>

#include <fcntl.h>
#include <sys/sysmacros.h>

namespace {

/// One memory in /dev/shm that a process has mapped.
struct Mapping
{
    qint64 pid;
    FileIdentity memory;
    QByteArray path; ///< that it had when it was mapped

    bool isOf(qint64 process, const FileIdentity &other) const
    {
        return pid == process && memory == other;
    }
};

const QByteArray folder = QByteArrayLiteral("/dev/shm/");

/// A line reads "start-end rwxs offset device inode   path", with " (deleted)" behind the path of a file
/// whose name was removed or given to another file. False for memory that is no shared file.
bool readMapping(const QByteArray &line, Mapping &mapping)
{
    const int path = line.indexOf(folder);
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

/// By the words that such processes leave in the block.
bool isAmong(const std::vector<quint64> &words, qint64 process)
{
    const auto pid = static_cast<pid_t>(process);
    const ProcessStart start = words.empty() ? ProcessStart() : ProcessStart::of(pid);
    return std::any_of(words.cbegin(), words.cend(), [&](quint64 word) {
        const pid_t noted = ProcessStart::pidOf(word);
        return ProcessStart::wordOf(noted, start) == word
               && (noted == pid || noted == ProcessStart::ownPid(pid));
    });
}

QString programOf(qint64 pid)
{
    QString path = QFile::symLinkTarget(QStringLiteral("/proc/%1/exe").arg(pid));
    const QString mark = QStringLiteral(" (deleted)");
    if (path.endsWith(mark)) {
        path.chop(mark.size());
    }
    if (!path.isEmpty()) {
        return QFileInfo(path).fileName();
    }
    QFile name(QStringLiteral("/proc/%1/comm").arg(pid));
    return name.open(QIODevice::ReadOnly) ? QString::fromLocal8Bit(name.readAll()).trimmed()
                                          : QString();
}

/// As the kernel writes a path into the table: a line break would end the line.
QByteArray pathInTable(const QString &name)
{
    return folder + name.toLocal8Bit().replace('\n', "\\012");
}

} // namespace

struct RegionUsers::Private
{
    std::vector<Mapping> mappings;
    bool isComplete = true;

    void look(qint64 pid);
};

void RegionUsers::Private::look(qint64 pid)
{
    const QByteArray path = QByteArrayLiteral("/proc/") + QByteArray::number(pid) + "/maps";
    const int fd = ::open(path.constData(), O_RDONLY | O_CLOEXEC);
    QFile table;
    if (fd < 0 || !table.open(fd, QIODevice::ReadOnly, QFileDevice::AutoCloseHandle)) {
        // A process that has ended, or that the kernel runs for itself, has nothing mapped.
        isComplete = isComplete && (errno == ENOENT || errno == ESRCH);
        return;
    }
    // Such a file has no size: it ends where nothing more comes.
    for (QByteArray line = table.readLine(); !line.isEmpty(); line = table.readLine()) {
        Mapping mapping{pid, {}, {}};
        if (readMapping(line, mapping)
            && std::none_of(mappings.cbegin(), mappings.cend(), [&](const Mapping &known) {
                   return known.isOf(pid, mapping.memory);
               })) {
            mappings.push_back(mapping);
        }
    }
}

RegionUsers::RegionUsers() : m_private(std::make_unique<Private>())
{
    const std::vector<pid_t> numbers = ProcessList::findNumbers();
    m_private->isComplete = !numbers.empty() && ProcessList::areAllNamed();
    for (const pid_t number : numbers) {
        m_private->look(number);
    }
}

RegionUsers::~RegionUsers() = default;

QVector<RegionUser> RegionUsers::getUsersOf(const RegionInspection &region) const
{
    const QString name = region.m_private->name;
    const FileIdentity &inspected = region.m_private->file.identity();
    FileIdentity current{};
    const bool isThere = RegionFile::find(name, current);
    const QByteArray path = pathInTable(name);
    const std::vector<quint64> otherLayouts = region.m_private->otherLayouts();
    QVector<RegionUser> users;
    for (const auto &mapping : m_private->mappings) {
        const bool isCurrent = isThere && mapping.memory == current;
        const bool isInspected = region.isReadable() && mapping.memory == inspected;
        // The same path on another device is the name of another container.
        const bool isFormer = mapping.path == path
                              && mapping.memory.device == RegionFile::deviceOfAll();
        if (isCurrent || isInspected || isFormer) {
            users.append({mapping.pid, programOf(mapping.pid), !isCurrent,
                          isInspected && isAmong(otherLayouts, mapping.pid)});
        }
    }
    return users;
}

bool RegionUsers::isComplete() const
{
    return m_private->isComplete;
}
