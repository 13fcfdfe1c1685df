#pragma once

#include "HostMeasurement.h"
#include "ProcessDataManagement/ProcessDataManager.h"

#include <QString>

/// Creates the region of the host description and publishes what was measured, a set a round.
class HostMonitor
{
public:
    /// @p root as HostMeasurement takes it.
    explicit HostMonitor(const QString &root);

    /// Creates the region. False if that failed; the log says why.
    bool start(const QString &descriptionPath);
    /// Measures and publishes once. False if the set could not be published as a whole.
    bool publishRound();

    QString key() const;
    int numberOfLeaves() const;

private:
    bool publish(const ValueSet &set);
    ProcessValue tooHot() const;

    // The tree hangs on the manager's buffers and goes first.
    ProcessDataManager m_manager;
    ProcessDataManager::BaseClassSharedPointer m_root;
    HostMeasurement m_measurement;
    unsigned int m_round = 0;
};
