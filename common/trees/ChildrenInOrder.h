#pragma once

#include "Configuration/ConfigurationAndProcessDataBase.h"

#include <QStringList>
#include <QVariant>

/// How the children of a node stand where a person sees them, the same for process values and configurations.
namespace ChildrenInOrder {

/// A property that has a value; invalid if it has none, which a null is not either.
QVariant given(const ConfigurationAndProcessDataBase &element, const QString &key);

/// By display position, those of the same by name. What has no position goes behind what has one, and so does a
/// child that could not be parsed.
QStringList keys(const ConfigurationAndProcessDataBase::ChildMap &children);

} // namespace ChildrenInOrder
