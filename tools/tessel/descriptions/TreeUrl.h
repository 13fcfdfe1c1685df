#pragma once

#include "Configuration/ConfigurationAndProcessDataBase.h"

#include <QString>
#include <QStringList>

/// URLs and the order in which people see what they lead to, the same for process values and
/// configurations.
namespace TreeUrl {

/// A URL as the tree itself would write it: no slash in front or behind, none doubled.
QString normalized(const QString &url);
QString joined(const QString &url, const QString &name);
/// Both normalised; below the empty one lies everything.
bool isAtOrBelow(const QString &url, const QString &top);

/// The keys of a node's children, by display position and then by name. What has no position goes
/// behind what has one, and so does a child that could not be parsed.
QStringList sortedKeys(const ConfigurationAndProcessDataBase::ChildMap &children);

} // namespace TreeUrl
