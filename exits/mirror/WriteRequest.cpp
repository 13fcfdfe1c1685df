#include "mirror/WriteRequest.h"

#include <QStringList>

#include <algorithm>

namespace {

constexpr int mostNamed = 3;
/// Of a text of somebody else in a message.
constexpr int mostCharacters = 200;

template <typename Name>
QString joined(const QVector<RequestedValue> &values, const Name &name)
{
    QStringList names;
    std::transform(values.cbegin(), values.cbegin() + std::min(values.size(), mostNamed),
                   std::back_inserter(names), name);
    const QString first = names.join(QLatin1String(", "));
    return values.size() > mostNamed
               ? QStringLiteral("%1 and %2 more").arg(first).arg(values.size() - mostNamed)
               : first;
}

} // namespace

QString namesOf(const QVector<RequestedValue> &values)
{
    return joined(values, [](const RequestedValue &value) {
        return QStringLiteral("'%1'").arg(value.url.left(mostCharacters));
    });
}

QString textOf(const QVector<RequestedValue> &values)
{
    return joined(values, [](const RequestedValue &value) {
        const QString url = value.url.left(mostCharacters);
        return value.state == 0
                   ? QStringLiteral("'%1' = '%2'").arg(url, value.text.left(mostCharacters))
                   : QStringLiteral("'%1' = error state %2").arg(url).arg(value.state);
    });
}
