#pragma once

#include "TesselModels/ProcessDataSource.h"
#include "support/SegmentFile.h"
#include "tool/HeldRegion.h"
#include "tool/ToolDescription.h"

#include <QJsonArray>
#include <QMap>
#include <QtTest>

/// Long against any honest wait: a test that reaches it has failed.
constexpr int longestWait = 60000;

/// A description of values of several types whose region comes and goes. Removes what is left of it.
class DisplayedPlant
{
public:
    DisplayedPlant()
        : m_segment(m_description.key() + QStringLiteral("SharedMemory"))
        , m_semaphores(m_description.key() + QStringLiteral("Semaphore"))
    {
        constexpr auto state = ToolDescription::Metadata::ErrorState;
        m_description.add(speed, QStringLiteral("double"), state, 8,
                          {{QStringLiteral("unit"), QStringLiteral("1/min")},
                           {QStringLiteral("minLimit"), 0.5},
                           {QStringLiteral("maxLimit"), 3000},
                           {QStringLiteral("labelTextId"), QStringLiteral("LABEL_SPEED")}});
        m_description.add(name, QStringLiteral("string"), state, 16);
        m_description.add(count, QStringLiteral("int64"), state, 8);
        m_description.add(level, QStringLiteral("float"), ToolDescription::Metadata::None, 4,
                          {{QStringLiteral("readOnly"), true}});
        m_description.add(mode, QStringLiteral("selector"), state, 4,
                          {{QStringLiteral("selectionList"),
                            QJsonArray{QStringLiteral("off"), QStringLiteral("auto")}}});
        m_description.add(small, QStringLiteral("uint8"), state, 1);
        m_description.add(flag, QStringLiteral("boolean"), state, 1);
        file = m_description.write();
    }

    ToolDescription &description() { return m_description; }
    QString key() const { return m_description.key(); }

    const QString speed = QStringLiteral("pump/speed");
    const QString name = QStringLiteral("pump/name");
    const QString count = QStringLiteral("pump/count");
    const QString level = QStringLiteral("tank/level");
    const QString mode = QStringLiteral("tank/mode");
    const QString small = QStringLiteral("tank/small");
    const QString flag = QStringLiteral("tank/flag");
    QString file;

private:
    ToolDescription m_description;
    SegmentFile m_segment;
    SemaphoreSet m_semaphores;
};

/// Many doubles side by side, below `rows`.
class RowedPlant
{
public:
    explicit RowedPlant(int count)
        : m_segment(m_description.key() + QStringLiteral("SharedMemory"))
        , m_semaphores(m_description.key() + QStringLiteral("Semaphore"))
    {
        for (int i = 0; i < count; ++i) {
            m_description.add(url(i), QStringLiteral("double"),
                              ToolDescription::Metadata::ErrorState, 8);
        }
        file = m_description.write();
    }

    static QString url(int row) { return QStringLiteral("rows/r%1").arg(row); }

    QString file;

private:
    ToolDescription m_description;
    SegmentFile m_segment;
    SemaphoreSet m_semaphores;
};

/// Writes @p values by URL and publishes them as one set.
inline bool publishSet(HeldRegion &region, const QMap<QString, ProcessValue> &values)
{
    for (auto value = values.cbegin(); value != values.cend(); ++value) {
        if (!region.write(value.key(), value.value())) {
            return false;
        }
    }
    return region.manager().swapReadAndWriteBuffer();
}

/// Until the source shows the set of @p generation. False if it does not come to that.
inline bool waitForGeneration(const ProcessDataSource &source, quint64 generation)
{
    return QTest::qWaitFor([&] { return source.getGeneration() == generation; }, longestWait);
}

inline bool waitUntilConnected(const ProcessDataSource &source, bool isConnected = true)
{
    return QTest::qWaitFor([&] { return source.isConnected() == isConnected; }, longestWait);
}
