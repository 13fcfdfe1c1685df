#pragma once

#include "PacedPublisher.h"
#include "support/LogCapture.h"

#include <QFile>
#include <QTemporaryDir>
#include <QThread>

/// A plant whose region is published by this process, and a place for recordings of it.
class RecordedPlant
{
public:
    RecordedPlant() : publisher(plant) { }

    QString path(const QString &name = QStringLiteral("plant.rec")) const
    {
        return m_folder.filePath(name);
    }
    QStringList record(const QStringList &options = {}) const
    {
        return QStringList{QStringLiteral("record"), plant.file, QStringLiteral("-o"), path()}
               + options;
    }
    /// The recorder, once it has the set that was there.
    bool isBegun(const ToolProcess &recorder) const
    {
        return publisher.waitUntilDone(recorder.pid());
    }

    const DoctoredPlant plant;
    const LogCapture log;
    PacedPublisher publisher;

private:
    QTemporaryDir m_folder;
};

inline QByteArray fileBytes(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

/// One column of an exported recording, without its title.
inline QStringList columnOf(const QString &path, const QString &title)
{
    const ToolResult result = runTool({QStringLiteral("export"), path});
    const QStringList lines = result.output.split(QLatin1Char('\n'), Qt::SkipEmptyParts);
    const int column = lines.value(0).split(QLatin1Char(',')).indexOf(title);
    QStringList cells;
    for (const auto &line : lines.mid(1)) {
        cells.append(line.split(QLatin1Char(',')).value(column));
    }
    return cells;
}

inline QStringList valuesOf(const QString &path)
{
    return columnOf(path, QStringLiteral("pump/speed"));
}

inline ProcessValue stateValue(ProcessDataDefinitions::ErrorTypes state)
{
    return ProcessValue(state);
}

/// So that a replay of what is recorded takes twenty seconds where it is a thousand times as slow.
inline bool isLater()
{
    QThread::msleep(20);
    return true;
}

/// A plant of which three sets were recorded: none, 7 and an error.
class ReplayedPlant : public RecordedPlant
{
public:
    ReplayedPlant()
    {
        ToolProcess recorder(record());
        isReady = isBegun(recorder) && isLater()
                  && publisher.publishTo(recorder.pid(), validValue(7))
                  && publisher.publishTo(
                      recorder.pid(),
                      stateValue(ProcessDataDefinitions::PROCESS_VALUE_ERROR_TYPE_OVERRANGE));
        recorder.signal(SIGINT);
        isReady = isReady && recorder.finish().exitCode == 0;
    }

    bool isReady = false;
};

/// A recording of a plant whose region has gone.
class FormerPlant
{
public:
    FormerPlant()
    {
        const LogCapture log;
        PacedPublisher publisher(plant);
        ToolProcess recorder({QStringLiteral("record"), plant.file, QStringLiteral("-o"), path()});
        isReady = publisher.waitUntilDone(recorder.pid()) && isLater()
                  && publisher.publishTo(recorder.pid(), validValue(7))
                  && publisher.publishTo(
                      recorder.pid(),
                      stateValue(ProcessDataDefinitions::PROCESS_VALUE_ERROR_TYPE_OVERRANGE));
        recorder.signal(SIGINT);
        isReady = isReady && recorder.finish().exitCode == 0;
    }

    QString path() const { return m_folder.filePath(QStringLiteral("plant.rec")); }

    DoctoredPlant plant;
    bool isReady = false;

private:
    QTemporaryDir m_folder;
};
