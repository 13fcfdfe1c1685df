#pragma once

#include "TesselModels/ShownSet_p.h"

#include <QByteArray>
#include <QHash>
#include <QVariant>
#include <QVector>

/// What list and tree show of a leaf.
namespace LeafCells {

QHash<int, QByteArray> roleNames();
QVariant header(int section, int role);

/// Of a leaf of the set; a negative one is a value that the description does not have: the URL and the name
/// are all that is known of it.
QVariant data(const ShownSet &set, int leaf, const QString &url, int column, int role);
/// What a tool tip shows as @p text: it takes for markup what looks like it.
QString tip(const QString &text);
/// Whether it may be written now.
bool isWritable(const ShownSet &set, int leaf);

/// The roles whose answers a new set changes.
const QVector<int> &changingRoles();

} // namespace LeafCells
