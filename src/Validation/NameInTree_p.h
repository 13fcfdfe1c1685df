#pragma once

#include <QFileInfo>
#include <QString>

/// The name of an entry of a folder in the tree that a walk for @p extension makes; empty if it is nothing
/// there. Of two entries with one name the later one in the listing counts.
QString nameInTree(const QFileInfo &entry, const QString &extension);
