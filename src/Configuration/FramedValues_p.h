#pragma once

#include "Configuration/ConfigurationAndProcessDataBase.h"

#include <vector>

/// The values of @p properties, which belong to @p element, as a description has them: in the order
/// of the map, value and limits converted to the data type that @p dataTypes knows for its type name.
std::vector<QVariant> toFramedValues(const ConfigurationAndProcessDataBase &element,
                                     const ConfigurationAndProcessDataBase::PropertyMap &properties,
                                     const QHash<QString, QMetaType::Type> &dataTypes);
