#include "values/Difference.h"

#include "values/ValueText.h"

#include <algorithm>

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
