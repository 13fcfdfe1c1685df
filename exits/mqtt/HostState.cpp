#include "mqtt/HostState.h"

#include <QJsonDocument>
#include <QJsonObject>

HostState::Change HostState::take(const QByteArray &payload)
{
    const QJsonObject said = QJsonDocument::fromJson(payload).object();
    const QJsonValue online = said.value(QLatin1String("online"));
    const QJsonValue time = said.value(QLatin1String("timestamp"));
    if (!online.isBool() || !time.isDouble() || time.toDouble() < m_newest) {
        return Change::None;
    }
    m_newest = time.toDouble();
    if (m_isOnline == online.toBool()) {
        return Change::None;
    }
    m_isOnline = online.toBool();
    return *m_isOnline ? Change::Online : Change::Offline;
}
