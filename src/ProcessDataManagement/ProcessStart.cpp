#include "ProcessDataManagement/ProcessStart_p.h"

#include <QByteArray>
#include <QFile>
#include <QList>

#include <cerrno>

#include <sys/stat.h>

namespace {

ProcessStart startIn(const QString &folder)
{
    QFile file(QStringLiteral("/proc/%1/stat").arg(folder));
    if (!file.open(QIODevice::ReadOnly)) {
        return {};
    }
    const QByteArray line = file.readAll();
    // The program's name stands in brackets and may hold blanks and brackets itself.
    const int nameEnd = line.lastIndexOf(')');
    const QList<QByteArray> fields = line.mid(nameEnd + 2).split(' ');
    constexpr int stateField = 3;
    constexpr int threadsField = 20;
    constexpr int startField = 22;
    if (nameEnd < 0 || fields.size() <= startField - stateField) {
        return {};
    }
    return {fields[startField - stateField].toULongLong(),
            fields[0].isEmpty() ? '\0' : fields[0][0], fields[threadsField - stateField].toInt()};
}

/// Of one kind, by its inode; 0: not to be had.
quint64 namespaceIn(const QByteArray &folder, const char *kind)
{
    struct stat status = {};
    const QByteArray path = "/proc/" + folder + "/ns/" + kind;
    return stat(path.constData(), &status) == 0 ? status.st_ino : 0;
}

/// Of a process, in each namespace from that of /proc down to its own; empty: not to be had.
QList<QByteArray> numbersIn(const QString &folder)
{
    QFile status(QStringLiteral("/proc/%1/status").arg(folder));
    if (!status.open(QIODevice::ReadOnly)) {
        return {};
    }
    // "NSpid:\t4711\t12"
    for (QByteArray line = status.readLine(); !line.isEmpty(); line = status.readLine()) {
        if (line.startsWith("NSpid:")) {
            return line.simplified().split(' ').mid(1);
        }
    }
    return {};
}

} // namespace

ProcessStart ProcessStart::of(pid_t process)
{
    return startIn(QString::number(process));
}

ProcessStart ProcessStart::own()
{
    return startIn(QStringLiteral("self"));
}

quint64 ProcessStart::namespaceOf(pid_t process)
{
    const quint64 shown = namespaceIn(QByteArray::number(process), "pid");
    // Of another user's process it is not shown, but its numbers are: with one alone it lives where /proc
    // was mounted.
    const bool isSame = shown == 0 && numbersIn(QString::number(process)).size() == 1
                        && areOwnNumbers();
    return isSame ? ownNamespace() : shown;
}

quint64 ProcessStart::ownNamespace()
{
    return namespaceIn(QByteArrayLiteral("thread-self"), "pid");
}

bool ProcessStart::hasOwnTime(pid_t process)
{
    const quint64 own = namespaceIn(QByteArrayLiteral("thread-self"), "time");
    // A kernel without such namespaces has one time for all.
    return own == 0 ? errno == ENOENT : namespaceIn(QByteArray::number(process), "time") == own;
}

bool ProcessStart::isNamed(pid_t process)
{
    struct stat status = {};
    const QByteArray path = "/proc/" + QByteArray::number(process) + "/stat";
    return stat(path.constData(), &status) == 0 || (errno != ENOENT && errno != ESRCH);
}

pid_t ProcessStart::ownPid(pid_t process)
{
    const QList<QByteArray> numbers = numbersIn(QString::number(process));
    return numbers.isEmpty() ? 0 : static_cast<pid_t>(numbers.constLast().toInt());
}

bool ProcessStart::areOwnNumbers()
{
    return numbersIn(QStringLiteral("self")).size() == 1;
}
