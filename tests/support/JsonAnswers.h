#pragma once

#include <QVariant>

#include <algorithm>
#include <cstring>

/// Compares what a JSON text is read as.
namespace JsonAnswers {

/// Whether two variants are of one type and value, down to every entry. The operator of the toolkit
/// takes 1 and 1.0 and "1" for the same.
inline bool isSame(const QVariant &left, const QVariant &right)
{
    if (left.userType() != right.userType()) {
        return false;
    }
    const auto areEntriesSame = [](const auto &some, const auto &others) {
        return some.size() == others.size()
               && std::equal(some.begin(), some.end(), others.begin(), isSame);
    };
    switch (left.userType()) {
    case QMetaType::QVariantList: return areEntriesSame(left.toList(), right.toList());
    case QMetaType::QVariantMap:
        return left.toMap().keys() == right.toMap().keys()
               && areEntriesSame(left.toMap(), right.toMap());
    case QMetaType::QString:
        return left.toString() == right.toString()
               && left.toString().isNull() == right.toString().isNull();
    case QMetaType::Double:
        return std::memcmp(left.constData(), right.constData(), sizeof(double)) == 0;
    default: return left == right;
    }
}

} // namespace JsonAnswers
