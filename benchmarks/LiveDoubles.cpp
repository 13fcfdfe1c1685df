#include "LiveDoubles.h"

#include "PlainSlot.h"

#include <QJsonDocument>
#include <QJsonObject>

namespace {

QByteArray description(const QString &key, int count)
{
    constexpr int slotSize = PlainSlot::size;
    QJsonObject children;
    for (int i = 0; i < count; ++i) {
        children.insert(QStringLiteral("value%1").arg(i),
                        QJsonObject{{QStringLiteral("type"), QStringLiteral("double")},
                                    {QStringLiteral("offsetSharedMemory"), slotSize * i},
                                    {QStringLiteral("sizeValue"), 8},
                                    {QStringLiteral("sizeMetadata"), 4},
                                    {QStringLiteral("relativeOffsetMetadata"), 8},
                                    {QStringLiteral("displayPosition"), i}});
    }
    const QJsonObject root{{QStringLiteral("type"), QStringLiteral("treenode")},
                           {QStringLiteral("keyProcessDataMemory"), key},
                           {QStringLiteral("doubleBuffer"), true},
                           {QStringLiteral("sizeOfSharedMemory"), slotSize * count},
                           {QStringLiteral("value"), children}};
    return QJsonDocument(root).toJson();
}

} // namespace

LiveDoubles::LiveDoubles(const QString &topic, int count, InitType type, int creatorProcess)
{
    const QString key = QStringLiteral("tesselBenchmark%1%2").arg(topic).arg(creatorProcess);
    m_root = m_manager.createProcessDataFromJson(description(key, count),
                                                 QStringLiteral("process.json"), type);
    if (m_root.isNull() || !m_manager.isBufferValid()) {
        return;
    }
    ConfigurationAndProcessDataBase::ListElements elements;
    m_root->collectElements(elements, true);
    for (const auto &element : qAsConst(elements)) {
        m_leaves.append(element.dynamicCast<ProcessDataValue>());
    }
    m_isLive = type == ProcessDataManager::InitTypeSharedMemoryAttach || publishAll(1);
}

bool LiveDoubles::writeAllNoLock(double number)
{
    const ProcessValue value(number, ProcessDataDefinitions::PROCESS_VALUE_ERROR_TYPE_VALID);
    bool written = true;
    for (const auto &leaf : qAsConst(m_leaves)) {
        written = leaf->setValueNoLock(value) && written;
    }
    return written;
}

bool LiveDoubles::writeAll(double number)
{
    const bool written = m_manager.lockWriteBuffer() && writeAllNoLock(number);
    return m_manager.unlockWriteBuffer() && written;
}
