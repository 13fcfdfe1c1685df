#include "values/Difference.h"

#include "Companion/ConfigurationAndProcessDataDefinitions.h"
#include "values/ValueText.h"

#include <algorithm>

namespace {

using Definitions = ConfigurationAndProcessDataDefinitions;

bool isText(const QString &key)
{
    return key == Definitions::getKeyDataPropertyType()
           || key == Definitions::getKeyDataPropertyUnit()
           || key == Definitions::getKeyDataPropertyUnitType();
}

bool isRowLimit(const QString &key)
{
    return key == Definitions::getKeyDataPropertyArrayMinRows()
           || key == Definitions::getKeyDataPropertyArrayMaxRows();
}

} // namespace

Verdict Difference::verdict() const
{
    Verdict worst = Verdict::Compatible;
    for (const Change &change : changes) {
        worst = std::max(worst, change.verdict);
    }
    return worst;
}

bool isSameValue(const QVariant &left, const QVariant &right)
{
    if (left.isValid() != right.isValid()) {
        return false;
    }
    switch (left.userType() == right.userType() ? left.userType() : QMetaType::UnknownType) {
    case QMetaType::Bool:
    case QMetaType::Int:
    case QMetaType::UInt:
    case QMetaType::LongLong:
    case QMetaType::ULongLong:
    case QMetaType::QString: return left.isNull() == right.isNull() && left == right;
    // The toolkit calls doubles the same that are nearly so.
    default: return nestedJson(left) == nestedJson(right);
    }
}

bool isSlotKey(const QString &key)
{
    return key == Definitions::getKeyDataPropertyOffsetSharedMemory()
           || key == Definitions::getKeyDataPropertySizeValue()
           || key == Definitions::getKeyDataPropertySizeMetadata()
           || key == Definitions::getKeyDataPropertyRelativeOffsetMetadata()
           || key == Definitions::getKeyDataPropertyBitmask();
}

bool isReadAlike(const QString &key, const QVariant &left, const QVariant &right)
{
    if (isSlotKey(key)) {
        return left.toUInt() == right.toUInt();
    }
    if (isText(key)) {
        return left.toString() == right.toString();
    }
    if (key == Definitions::getKeyDataPropertyReadOnly()) {
        return left.toBool() == right.toBool();
    }
    if (key == QLatin1String("selectionList")) {
        return left.toStringList() == right.toStringList();
    }
    // Where there is none, any number of rows is allowed.
    if (isRowLimit(key) && left.isNull() == right.isNull()) {
        return left.toInt() == right.toInt();
    }
    return isSameValue(left, right);
}

void addCompatible(Difference &difference, const QString &what, const QVariant &former,
                   const QVariant &now)
{
    difference.changes.append({what, former, now, Verdict::Compatible, {}});
}

void addUnit(Difference &difference, const QString &what, const QVariant &former,
             const QVariant &now)
{
    const bool isNew = former.toString().isEmpty();
    difference.changes.append(
        {what, former, now, isNew ? Verdict::Compatible : Verdict::Breaking,
         isNew ? QString() : QStringLiteral("its numbers mean something else")});
}

QString selectionProblem(const QStringList &former, const QStringList &now)
{
    return former == now.mid(0, former.size())
               ? QString()
               : QStringLiteral("an index means another entry, or none");
}

void addSelectionList(Difference &difference, const QVariant &former, const QVariant &now)
{
    const QString problem = selectionProblem(former.toStringList(), now.toStringList());
    difference.changes.append({QStringLiteral("selectionList"), former, now,
                               problem.isEmpty() ? Verdict::Compatible : Verdict::Breaking,
                               problem});
}
