#pragma once

#include "region/RegionFollower.h"
#include "service/ServiceLog.h"
#include "support/SegmentFile.h"
#include "tool/HeldRegion.h"
#include "tool/ToolDescription.h"
#include "tool/ToolProcess.h"

#include <csignal>
#include <memory>

/// A description of a number and a text whose region comes and goes. Removes what is left of it.
class FollowedPlant
{
public:
    FollowedPlant()
        : m_segment(m_description.key() + QStringLiteral("SharedMemory"))
        , m_semaphores(m_description.key() + QStringLiteral("Semaphore"))
    {
        m_description.add(speed, QStringLiteral("double"), ToolDescription::Metadata::ErrorState, 8,
                          {{QStringLiteral("unit"), QStringLiteral("1/min")},
                           {QStringLiteral("minLimit"), 0.5},
                           {QStringLiteral("maxLimit"), 3000},
                           {QStringLiteral("viewStart"), 100},
                           {QStringLiteral("readOnly"), true},
                           {QStringLiteral("labelTextId"), QStringLiteral("LABEL_SPEED")}});
        m_description.add(name, QStringLiteral("string"), ToolDescription::Metadata::ErrorState,
                          16);
        file = m_description.write();
    }

    ToolDescription &description() { return m_description; }
    QString key() const { return m_description.key(); }

    const QString speed = QStringLiteral("pump/speed");
    const QString name = QStringLiteral("pump/name");
    QString file;

private:
    ToolDescription m_description;
    SegmentFile m_segment;
    SemaphoreSet m_semaphores;
};

/// `tessel hold` in a process of its own, which can be killed. It has made the region.
class Creator
{
public:
    explicit Creator(const QString &file)
        : m_process(std::make_unique<ToolProcess>(QStringList{QStringLiteral("hold"), file}))
        , isReady(m_process->nextLine().startsWith(QStringLiteral("holding")))
    {
    }
    void kill()
    {
        m_process->signal(SIGKILL);
        m_process->finish();
    }

private:
    std::unique_ptr<ToolProcess> m_process;

public:
    const bool isReady;
};

constexpr int longestWait = 60000;
