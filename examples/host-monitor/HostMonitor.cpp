#include "HostMonitor.h"

#include "Companion/ConfigurationAndProcessDataDefinitions.h"
#include "ProcessData/Linux/ProcessDataValue.h"

#include <QDebug>
#include <QElapsedTimer>

#include <sys/resource.h>

using ProcessDataDefinitions::PROCESS_VALUE_ERROR_TYPE_NO_VALID_INPUT_VALUE;
using ProcessDataDefinitions::PROCESS_VALUE_ERROR_TYPE_VALID;

namespace {

constexpr float firstTemperatureLimit = 85.0F;
constexpr double nanosecondsInMillisecond = 1e6;

const QString temperatureLimitUrl = QStringLiteral("thermal/limit");

} // namespace

HostMonitor::HostMonitor(const QString &root) : m_measurement(root) { }

bool HostMonitor::start(const QString &descriptionPath)
{
    m_root = m_manager.createProcessDataFromFile(descriptionPath,
                                                 ProcessDataManager::InitTypeSharedMemoryCreate);
    if (!m_root || !m_manager.isBufferValid()) {
        return false;
    }
    ValueSet firstLimit;
    firstLimit.add(temperatureLimitUrl, QVariant(firstTemperatureLimit));
    return publish(firstLimit);
}

bool HostMonitor::publishRound()
{
    QElapsedTimer timer;
    timer.start();
    ValueSet set = m_measurement.measure();
    set.add(QStringLiteral("thermal/tooHot"), tooHot());
    set.add(QStringLiteral("monitor/round"), QVariant(++m_round));
    set.add(QStringLiteral("monitor/priority"), QVariant(getpriority(PRIO_PROCESS, 0)));
    set.add(QStringLiteral("monitor/duration"),
            QVariant(double(timer.nsecsElapsed()) / nanosecondsInMillisecond));
    return publish(set);
}

QString HostMonitor::key() const
{
    return m_root->getProperty(ConfigurationAndProcessDataDefinitions::getStrKeyProcessDataMemory())
        .toString();
}

int HostMonitor::numberOfLeaves() const
{
    ConfigurationAndProcessDataBase::ListElements leaves;
    m_root->collectElements(leaves, false);
    return leaves.size();
}

bool HostMonitor::publish(const ValueSet &set)
{
    m_manager.lockWriteBuffer();
    bool isComplete = true;
    for (const auto &entry : set.values()) {
        const auto leaf = m_root->getLeafProcessDataValue(entry.first);
        if (!leaf || !leaf->setValueNoLock(entry.second)) {
            qWarning() << "Value was not written:" << entry.first;
            isComplete = false;
        }
    }
    return m_manager.unlockWriteBuffer() && m_manager.swapReadAndWriteBuffer() && isComplete;
}

ProcessValue HostMonitor::tooHot() const
{
    const ProcessValue &temperature = m_measurement.temperature();
    if (temperature.getErrorType() != PROCESS_VALUE_ERROR_TYPE_VALID) {
        return {temperature.getErrorType()};
    }
    ProcessValue limit(PROCESS_VALUE_ERROR_TYPE_NO_VALID_INPUT_VALUE);
    m_root->getLeafProcessDataValue(temperatureLimitUrl)->getValue(limit);
    if (limit.getErrorType() != PROCESS_VALUE_ERROR_TYPE_VALID) {
        return {limit.getErrorType()};
    }
    return {temperature.toDouble() > limit.toDouble(), PROCESS_VALUE_ERROR_TYPE_VALID};
}
