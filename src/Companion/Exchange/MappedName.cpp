#include "Companion/Exchange/MappedName_p.h"

#include <QByteArray>
#include <QFile>

#include <cstdint>

namespace {

// A line reads "start-end rwxs offset device inode   path", with " (deleted)" behind the path of a
// file whose name was removed or given to another file.
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

} // namespace

bool hasMappedName(const void *address)
{
    QFile table(QStringLiteral("/proc/self/maps"));
    if (!table.open(QIODevice::ReadOnly)) {
        return false;
    }
    // Such a file has no size: it ends where nothing more comes.
    for (QByteArray line = table.readLine(); !line.isEmpty(); line = table.readLine()) {
        if (holdsAddress(line, reinterpret_cast<std::uintptr_t>(address))) {
            const QList<QByteArray> fields = line.simplified().split(' ');
            return fields.value(inodeField, "0") != "0" && !line.endsWith(" (deleted)\n");
        }
    }
    return false;
}
