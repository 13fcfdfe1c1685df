#include "text/CountText.h"

QString countText(quint64 count, const QString &one, const QString &several)
{
    const QString many = several.isEmpty() ? one + QLatin1Char('s') : several;
    return QString::number(count) + QLatin1Char(' ') + (count == 1 ? one : many);
}
