#include "CountedPlant.h"

#include "ProcessData/Linux/ProcessDataValue.h"

#include <QDir>
#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>

#include <unistd.h>

namespace {

constexpr int slotSize = 12;
constexpr int nodeSize = 100;

QString urlOf(int leaf)
{
    return QStringLiteral("n%1/v%2")
        .arg(leaf / nodeSize, 4, 10, QLatin1Char('0'))
        .arg(leaf % nodeSize, 2, 10, QLatin1Char('0'));
}

QJsonObject leafObject(int leaf)
{
    return {{QStringLiteral("type"), QStringLiteral("double")},
            {QStringLiteral("offsetSharedMemory"), slotSize * leaf},
            {QStringLiteral("sizeValue"), 8},
            {QStringLiteral("relativeOffsetMetadata"), 8},
            {QStringLiteral("sizeMetadata"), 4},
            {QStringLiteral("displayPosition"), leaf},
            {QStringLiteral("readOnly"), false}};
}

QByteArray description(int leaves)
{
    QJsonObject nodes;
    for (int begin = 0; begin < leaves; begin += nodeSize) {
        QJsonObject children;
        for (int leaf = begin; leaf < qMin(begin + nodeSize, leaves); ++leaf) {
            children.insert(urlOf(leaf).section(QLatin1Char('/'), 1), leafObject(leaf));
        }
        nodes.insert(urlOf(begin).section(QLatin1Char('/'), 0, 0),
                     QJsonObject{{QStringLiteral("type"), QStringLiteral("treenode")},
                                 {QStringLiteral("value"), children}});
    }
    const QJsonObject root{{QStringLiteral("type"), QStringLiteral("treenode")},
                           {QStringLiteral("keyProcessDataMemory"), CountedPlant::key()},
                           {QStringLiteral("doubleBuffer"), true},
                           {QStringLiteral("sizeOfSharedMemory"), slotSize * leaves},
                           {QStringLiteral("value"), nodes}};
    return QJsonDocument(root).toJson();
}

} // namespace

QString CountedPlant::key()
{
    return QStringLiteral("tesselRecordRate%1").arg(::getpid());
}

CountedPlant::CountedPlant(const QString &folder, int leaves, int changing)
    : m_file(QDir(folder).filePath(QStringLiteral("plant.process.json")))
    , m_changing(changing)
{
    QFile file(m_file);
    const QByteArray text = description(leaves);
    if (!file.open(QIODevice::WriteOnly) || file.write(text) != text.size() || !file.flush()) {
        return;
    }
    m_root = m_manager.createProcessDataFromFile(m_file,
                                                 ProcessDataManager::InitTypeSharedMemoryCreate);
    if (!m_root || !m_manager.isBufferValid()) {
        return;
    }
    m_isLive = m_manager.lockWriteBuffer();
    for (int leaf = 0; leaf < leaves && m_isLive; ++leaf) {
        m_leaves.emplace_back(m_root, urlOf(leaf));
        m_isLive = m_leaves.back().writeNoLock(0);
    }
    m_isLive = m_isLive && m_manager.unlockWriteBuffer() && m_manager.swapReadAndWriteBuffer();
}

int CountedPlant::leafAt(const QString &url)
{
    return url.mid(1, 4).toInt() * nodeSize + url.mid(7).toInt();
}

int CountedPlant::firstChanged(quint64 number, int leaves, int changing)
{
    return static_cast<int>((number - 1) * static_cast<quint64>(changing)
                            % static_cast<quint64>(leaves));
}

bool CountedPlant::publishTorn()
{
    const auto leaf = firstChanged(m_number + 1, static_cast<int>(m_leaves.size()), m_changing);
    return write(m_number + 1)
           && m_leaves[static_cast<std::size_t>(leaf)].write(static_cast<double>(m_number))
           && swap();
}

bool CountedPlant::write(quint64 number)
{
    bool isWritten = m_manager.lockWriteBuffer();
    const int count = static_cast<int>(m_leaves.size());
    int leaf = firstChanged(number, count, m_changing);
    for (int i = 0; i < m_changing; ++i) {
        isWritten = m_leaves[static_cast<std::size_t>(leaf)].writeNoLock(
                        static_cast<double>(number))
                    && isWritten;
        leaf = leaf + 1 == count ? 0 : leaf + 1;
    }
    return m_manager.unlockWriteBuffer() && isWritten;
}

bool CountedPlant::swap()
{
    if (!m_manager.swapReadAndWriteBuffer()) {
        return false;
    }
    ++m_number;
    return true;
}
