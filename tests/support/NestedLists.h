#pragma once

#include <QVariant>

#include <initializer_list>

/// A list whose entries are the lists given here, and not what is in them.
inline QVariantList nested(std::initializer_list<QVariantList> lists)
{
    QVariantList list;
    for (const QVariantList &entry : lists) {
        list.append(QVariant(entry));
    }
    return list;
}

/// The information of a table, which has two entries, the second with one entry a column.
inline QVariantList columnInfo(const QVariantList &columns)
{
    return nested({{}, columns});
}
