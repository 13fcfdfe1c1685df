#pragma once

#include "ProcNetDev.h"
#include "ProcStat.h"
#include "ValueSet.h"

#include <QElapsedTimer>
#include <QString>

#include <optional>

/// Measures the machine it runs on. What the machine does not have comes with the error state that
/// tells so.
///
/// Rates and shares need two rounds; in the first they have no input.
class HostMeasurement
{
public:
    /// @p root is "/", or a folder with files like those of /proc and /sys below.
    explicit HostMeasurement(const QString &root);

    /// One round, without thermal/tooHot, which depends on a limit that others may set.
    ValueSet measure();

    /// The hottest temperature of the last round with its state.
    const ProcessValue &temperature() const { return m_temperature; }

private:
    QString path(const char *name) const;

    void addSystem(ValueSet &set, const ProcStat &stat) const;
    void addProcessors(ValueSet &set, const ProcStat &stat);
    void addMemory(ValueSet &set);
    void addLoad(ValueSet &set) const;
    void addNetwork(ValueSet &set);
    void addNetworkRates(ValueSet &set, const std::optional<ProcNetDev> &netDev);
    void addThermal(ValueSet &set);
    void addPower(ValueSet &set) const;

    QString m_root;
    std::optional<ProcStat::ProcessorTimes> m_formerTimes;
    std::optional<quint64> m_formerAvailable;
    std::optional<ProcNetDev> m_formerNetDev;
    QElapsedTimer m_sinceNetwork;
    ProcessValue m_temperature;
};
