#pragma once

#include "Configuration/ConfigurationAndProcessDataBase.h"

#include <QStringList>
#include <QVariant>

/// How the children of a node stand in a display.
namespace ChildrenInOrder {

/// A property that has a value; else invalid.
QVariant given(const ConfigurationAndProcessDataBase &element, const QString &key);

/// By display position, those of the same and those without one by name.
QStringList keys(const ConfigurationAndProcessDataBase::ChildMap &children);

} // namespace ChildrenInOrder
