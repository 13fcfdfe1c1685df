#pragma once

#include "Companion/PingPongBufferHandler.h"
#include "HeldRegion.h"
#include "ProcessData/Linux/SharedMemory.h"
#include "ToolProcess.h"

#include <QDateTime>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <fcntl.h>
#include <sys/stat.h>

/// A description of one measured value.
class Boiler
{
public:
    Boiler()
    {
        description.add(url, QStringLiteral("double"), ToolDescription::Metadata::ErrorState, 8,
                        {{QStringLiteral("unit"), QStringLiteral("°C")},
                         {QStringLiteral("labelTextId"), QStringLiteral("T1")},
                         {QStringLiteral("minLimit"), -20},
                         {QStringLiteral("maxLimit"), 120},
                         {QStringLiteral("viewStart"), 0},
                         {QStringLiteral("viewEnd"), 100.5}});
    }

    const QString url = QStringLiteral("boiler/temperature");
    ToolDescription description;
};

inline ToolResult explain(const QStringList &arguments)
{
    return runTool(QStringList(QStringLiteral("explain")) + arguments);
}

inline QJsonObject explained(const QString &file, const QString &url)
{
    const ToolResult result = explain({QStringLiteral("--json"), file, url});
    const QJsonArray all = QJsonDocument::fromJson(result.output.toUtf8()).array();
    return all.size() == 1 ? all.first().toObject() : QJsonObject();
}

/// Sets the time of the last set, and of the creation, so many seconds back from now.
inline bool setTimes(const ToolDescription &description, qint64 lastSwap, qint64 creation)
{
    SharedMemory memory;
    memory.setKey(description.key() + QStringLiteral("SharedMemory"));
    if (!memory.attach(SharedMemory::ReadWrite)) {
        return false;
    }
    const qint64 now = QDateTime::currentSecsSinceEpoch();
    static_cast<PingPongBufferHandler::ManagementBuffer *>(memory.data())->lastSwap =
        (now - lastSwap) * 1000000000;
    const timespec made{now - creation, 0};
    const timespec both[2] = {made, made};
    return utimensat(AT_FDCWD, qPrintable(description.segmentPath()), both, 0) == 0;
}
