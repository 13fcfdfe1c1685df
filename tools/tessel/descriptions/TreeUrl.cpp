#include "descriptions/TreeUrl.h"

#include "Companion/ConfigurationAndProcessDataDefinitions.h"

#include <algorithm>
#include <limits>

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
    QStringList keys = children.keys();
    std::sort(keys.begin(), keys.end());
    std::stable_sort(keys.begin(), keys.end(), [&](const QString &left, const QString &right) {
        return displayPosition(children[left]) < displayPosition(children[right]);
    });
    return keys;
}
