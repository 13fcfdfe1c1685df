#include "Companion/Lasting_p.h"
#include "Inspection/ProcessList_p.h"
#include "ProcessDataManagement/ProcessStart_p.h"

#include <QByteArray>
#include <QDir>
#include <QFile>
#include <QList>

#include <algorithm>
#include <cerrno>
#include <mutex>

#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

namespace {

/// That of the users of the machine itself: the kernel never gives it another number.
constexpr quint64 firstUserNamespace = 0xEFFFFFFD;

dev_t deviceOfProc()
{
    struct stat status = {};
    return ::stat("/proc", &status) == 0 ? status.st_dev : 0;
}

/// The options of what is mounted on @p device, if that is a /proc; empty if it is none.
QList<QByteArray> optionsOfProc(dev_t device)
{
    // A process whose main thread has ended has none.
    QFile table(QStringLiteral("/proc/thread-self/mountinfo"));
    if (!table.open(QIODevice::ReadOnly)) {
        return {};
    }
    const QByteArray number = QByteArray::number(major(device)) + ':'
                              + QByteArray::number(minor(device));
    // "36 35 0:21 / /proc rw,relatime shared:1 - proc proc rw,hidepid=invisible"
    constexpr int deviceField = 2;
    for (QByteArray line = table.readLine(); !line.isEmpty(); line = table.readLine()) {
        const int separator = line.indexOf(" - ");
        if (line.split(' ').value(deviceField) == number && separator >= 0) {
            const QList<QByteArray> fields = line.mid(separator + 3).trimmed().split(' ');
            return fields.first() == "proc" ? fields.last().split(',') : QList<QByteArray>();
        }
    }
    return {};
}

QByteArray valueOf(const QList<QByteArray> &options, const QByteArray &name,
                   const QByteArray &otherwise)
{
    for (const auto &option : options) {
        if (option.startsWith(name + '=')) {
            return option.mid(name.size() + 1);
        }
    }
    return otherwise;
}

/// The options tell a group as the machine itself numbers them.
bool isInGroup(const QByteArray &number)
{
    struct stat status = {};
    bool isNumber = false;
    const gid_t group = number.toUInt(&isNumber);
    if (!isNumber || ::stat("/proc/thread-self/ns/user", &status) != 0
        || status.st_ino != firstUserNamespace) {
        return false;
    }
    const int count = ::getgroups(0, nullptr);
    std::vector<gid_t> groups(static_cast<std::size_t>(std::max(count, 0)));
    if (count < 0 || ::getgroups(count, groups.data()) != count) {
        groups.clear();
    }
    groups.push_back(::getegid());
    return std::find(groups.cbegin(), groups.cend(), group) != groups.cend();
}

/// The last list of all, and who may touch it.
struct LastList
{
    std::mutex mutex;
    std::shared_ptr<const ProcessList> list;
};

LastList &lastList()
{
    static Lasting<LastList> last;
    return last.get();
}

} // namespace

ProcessList::ProcessList()
    : m_begin(Clock::now())
    , m_device(deviceOfProc())
    , m_pidNamespace(ProcessStart::ownNamespace())
    , m_isComplete(areAllNamed())
{
    const std::vector<pid_t> numbers = findNumbers();
    // There is at least this process.
    m_isComplete = m_isComplete && !numbers.empty();
    for (const pid_t number : numbers) {
        const quint64 start = ProcessStart::of(number).ticks;
        if (start != 0) {
            const bool hasOwnTime = ProcessStart::hasOwnTime(number);
            m_processes.push_back({number, start, ProcessStart::namespaceOf(number), hasOwnTime,
                                   hasOwnTime ? 0 : ProcessStart::ownPid(number)});
        } else if (ProcessStart::isNamed(number)) {
            m_isComplete = false;
        }
    }
}

std::shared_ptr<const ProcessList> ProcessList::takenSince(Clock::time_point time)
{
    // Whoever is forked while another thread holds it never gets it, and does without.
    std::unique_lock<std::mutex> lock(lastList().mutex, std::try_to_lock);
    if (!lock) {
        return std::shared_ptr<const ProcessList>(new ProcessList);
    }
    std::shared_ptr<const ProcessList> &last = lastList().list;
    if (!last || last->m_begin < time || last->m_device != deviceOfProc()
        || last->m_pidNamespace != ProcessStart::ownNamespace()) {
        last.reset(new ProcessList);
    }
    return last;
}

std::vector<pid_t> ProcessList::findNumbers()
{
    std::vector<pid_t> numbers;
    const QStringList entries = QDir(QStringLiteral("/proc")).entryList(QDir::Dirs, QDir::Unsorted);
    for (const auto &entry : entries) {
        bool isProcess = false;
        const auto number = static_cast<pid_t>(entry.toInt(&isProcess));
        if (isProcess) {
            numbers.push_back(number);
        }
    }
    std::sort(numbers.begin(), numbers.end());
    return numbers;
}

bool ProcessList::areAllNamed()
{
    const QList<QByteArray> options = optionsOfProc(deviceOfProc());
    const QByteArray hiding = valueOf(options, "hidepid", "off");
    // Kernels differ in whether they tell the number or the word.
    if (hiding == "off" || hiding == "0" || hiding == "noaccess" || hiding == "1") {
        return !options.isEmpty();
    }
    // Everything else hangs on whether one may trace each of them, which a security module may deny root
    // as well: nobody knows how many there are.
    return (hiding == "invisible" || hiding == "2") && isInGroup(valueOf(options, "gid", "0"));
}
