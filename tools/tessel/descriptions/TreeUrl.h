#pragma once

#include <QString>
#include <QStringList>

/// URLs of process values and configurations.
namespace TreeUrl {

/// A URL as the tree itself would write it: no slash in front or behind, none doubled.
QString normalized(const QString &url);
QString joined(const QString &url, const QString &name);
/// Both normalised; below the empty one lies everything.
bool isAtOrBelow(const QString &url, const QString &top);

} // namespace TreeUrl
