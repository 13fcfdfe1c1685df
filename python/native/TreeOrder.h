#pragma once

#include "Companion/ConfigurationAndProcessDataDefinitions.h"
#include "Configuration/ConfigurationAndProcessDataBase.h"

#include <algorithm>
#include <limits>
#include <utility>
#include <vector>

namespace TreeOrder {

/// The keys of children in the order in which a person is shown them: by display position, then by name.
inline QStringList sortedKeys(const ConfigurationAndProcessDataBase::ChildMap &children)
{
    std::vector<std::pair<int, QString>> places;
    places.reserve(static_cast<std::size_t>(children.size()));
    for (auto child = children.cbegin(); child != children.cend(); ++child) {
        const QVariant position =
            child.value() ? child.value()->getProperty(
                ConfigurationAndProcessDataDefinitions::getKeyDataPropertyDisplayPosition())
                          : QVariant();
        places.emplace_back(position.isValid() ? position.toInt() : std::numeric_limits<int>::max(),
                            child.key());
    }
    std::sort(places.begin(), places.end());
    QStringList keys;
    keys.reserve(children.size());
    for (const auto &place : places) {
        keys.append(place.second);
    }
    return keys;
}

} // namespace TreeOrder
