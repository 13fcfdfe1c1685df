#pragma once

#include <QString>

/// What stands between two slashes of a topic: the name of a group, a node or a device.
namespace TopicName {

/// What @p name holds that no such name may, for a person; empty if it can be one.
QString problemOf(const QString &name);

} // namespace TopicName
