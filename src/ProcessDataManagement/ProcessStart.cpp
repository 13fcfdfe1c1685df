#include "ProcessDataManagement/ProcessStart_p.h"

#include <QByteArray>
#include <QFile>
#include <QList>

ProcessStart ProcessStart::of(pid_t process)
{
    QFile file(QStringLiteral("/proc/%1/stat").arg(process));
    if (!file.open(QIODevice::ReadOnly)) {
        return {};
    }
    const QByteArray line = file.readAll();
    // The program's name stands in brackets and may hold blanks and brackets itself.
    const int nameEnd = line.lastIndexOf(')');
    const QList<QByteArray> fields = line.mid(nameEnd + 2).split(' ');
    constexpr int stateField = 3;
    constexpr int startField = 22;
    if (nameEnd < 0 || fields.size() <= startField - stateField) {
        return {};
    }
    return {fields[startField - stateField].toULongLong(),
            fields[0].isEmpty() ? '\0' : fields[0][0]};
}
