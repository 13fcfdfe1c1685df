#pragma once

#include <QString>

/// `1 set`, `0 sets`, `2 sets`.
inline QString counted(quint64 number, const QString &one, const QString &several)
{
    return QStringLiteral("%1 %2").arg(QString::number(number), number == 1 ? one : several);
}
