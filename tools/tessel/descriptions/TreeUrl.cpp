#include "descriptions/TreeUrl.h"

#include "Companion/ConfigurationAndProcessDataDefinitions.h"

#include <algorithm>
#include <limits>
#include <utility>
#include <vector>

namespace {

using Definitions = ConfigurationAndProcessDataDefinitions;

int displayPosition(const ConfigurationAndProcessDataBase::BaseClassSharedPointer &element)
{
    if (!element) {
        return std::numeric_limits<int>::max();
    }
    const QVariant position = element->getProperty(
        Definitions::getKeyDataPropertyDisplayPosition());
    return position.isValid() ? position.toInt() : std::numeric_limits<int>::max();
}

} // namespace

QString TreeUrl::normalized(const QString &url)
{
    return url.split(QLatin1Char('/'), Qt::SkipEmptyParts).join(QLatin1Char('/'));
}

QString TreeUrl::joined(const QString &url, const QString &name)
{
    return url.isEmpty() ? name : url + QLatin1Char('/') + name;
}

bool TreeUrl::isAtOrBelow(const QString &url, const QString &top)
{
    return top.isEmpty() || url == top || url.startsWith(top + QLatin1Char('/'));
}

QStringList TreeUrl::sortedKeys(const ConfigurationAndProcessDataBase::ChildMap &children)
{
    // Read once for each child, not for each comparison.
    std::vector<std::pair<int, QString>> places;
    places.reserve(static_cast<std::size_t>(children.size()));
    for (auto child = children.cbegin(); child != children.cend(); ++child) {
        places.emplace_back(displayPosition(child.value()), child.key());
    }
    std::sort(places.begin(), places.end());
    QStringList keys;
    keys.reserve(children.size());
    for (const auto &place : places) {
        keys.append(place.second);
    }
    return keys;
}
