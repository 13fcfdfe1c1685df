#include "trees/ChildrenInOrder.h"

#include "Companion/ConfigurationAndProcessDataDefinitions.h"

#include <algorithm>
#include <limits>
#include <utility>
#include <vector>

using Definitions = ConfigurationAndProcessDataDefinitions;

QVariant ChildrenInOrder::given(const ConfigurationAndProcessDataBase &element, const QString &key)
{
    const QVariant value = element.getProperty(key);
    return value.isNull() ? QVariant() : value;
}

QStringList ChildrenInOrder::keys(const ConfigurationAndProcessDataBase::ChildMap &children)
{
    // Read once for each child, not for each comparison.
    std::vector<std::pair<int, QString>> places;
    places.reserve(static_cast<std::size_t>(children.size()));
    for (auto child = children.cbegin(); child != children.cend(); ++child) {
        const QVariant position = child.value()
                                      ? given(*child.value(),
                                              Definitions::getKeyDataPropertyDisplayPosition())
                                      : QVariant();
        places.emplace_back(position.isValid() ? position.toInt() : std::numeric_limits<int>::max(),
                            child.key());
    }
    std::sort(places.begin(), places.end());
    QStringList ordered;
    ordered.reserve(children.size());
    for (const auto &place : places) {
        ordered.append(place.second);
    }
    return ordered;
}
