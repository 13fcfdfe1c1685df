#include "descriptions/TreeUrl.h"

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
