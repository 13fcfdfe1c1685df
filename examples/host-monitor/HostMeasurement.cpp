#include "HostMeasurement.h"

#include "PowerSupplies.h"
#include "ProcLoadavg.h"
#include "ProcMeminfo.h"
#include "ProcUptime.h"
#include "TextFile.h"
#include "ThermalZones.h"

#include <QDateTime>

#include <limits>

using ProcessDataDefinitions::ErrorTypes;
using ProcessDataDefinitions::PROCESS_VALUE_ERROR_TYPE_DIVISION_BY_ZERO;
using ProcessDataDefinitions::PROCESS_VALUE_ERROR_TYPE_INVALID_TEMPERATURE;
using ProcessDataDefinitions::PROCESS_VALUE_ERROR_TYPE_NO_VALID_INPUT_VALUE;
using ProcessDataDefinitions::PROCESS_VALUE_ERROR_TYPE_SENSOR_BREAKAGE;
using ProcessDataDefinitions::PROCESS_VALUE_ERROR_TYPE_VALID;

namespace {

/// The text, cut to what a slot of this many characters holds beside its end.
QString cut(const QString &text, int slotCharacters)
{
    return text.left(slotCharacters - 1);
}

std::optional<qint64> asSigned(const std::optional<quint64> &number)
{
    if (!number || *number > quint64(std::numeric_limits<qint64>::max())) {
        return std::nullopt;
    }
    return qint64(*number);
}

} // namespace

HostMeasurement::HostMeasurement(const QString &root)
    : m_root(root)
    , m_temperature(PROCESS_VALUE_ERROR_TYPE_SENSOR_BREAKAGE)
{
}

ValueSet HostMeasurement::measure()
{
    const ProcStat stat = ProcStat::parse(readTextFile(path("proc/stat")).value_or(QByteArray()));
    ValueSet set;
    addSystem(set, stat);
    addProcessors(set, stat);
    addMemory(set);
    addLoad(set);
    addNetwork(set);
    addThermal(set);
    addPower(set);
    return set;
}

QString HostMeasurement::path(const char *name) const
{
    return m_root + QLatin1Char('/') + QLatin1String(name);
}

void HostMeasurement::addSystem(ValueSet &set, const ProcStat &stat) const
{
    constexpr int slotCharacters = 65;
    const auto hostName = readLine(path("proc/sys/kernel/hostname"));
    set.add(QStringLiteral("system/hostName"),
            hostName ? std::make_optional(cut(*hostName, slotCharacters)) : std::nullopt);
    // This slot has no error state; an empty text stands for an unknown one.
    set.add(QStringLiteral("system/kernel"),
            QVariant(cut(readLine(path("proc/sys/kernel/osrelease")).value_or(QString()),
                         slotCharacters)));
    set.add(QStringLiteral("system/time"), QVariant(QDateTime::currentMSecsSinceEpoch()));
    set.add(QStringLiteral("system/upTime"),
            parseUptime(readTextFile(path("proc/uptime")).value_or(QByteArray())));
    set.add(QStringLiteral("system/bootTime"), asSigned(stat.bootTime));
    set.add(QStringLiteral("system/utcOffset"),
            QVariant(QDateTime::currentDateTime().offsetFromUtc() / 60));
    set.add(QStringLiteral("system/contextSwitches"), stat.contextSwitches);
    set.add(QStringLiteral("system/processesCreated"), stat.processesCreated);
    set.addWithin(QStringLiteral("system/processesRunning"), asSigned(stat.processesRunning), 0,
                  std::numeric_limits<quint16>::max());
    set.addWithin(QStringLiteral("system/processesBlocked"), asSigned(stat.processesBlocked), 0,
                  std::numeric_limits<quint16>::max());
}

void HostMeasurement::addProcessors(ValueSet &set, const ProcStat &stat)
{
    const std::optional<qint64> processors = stat.processors > 0
                                                 ? std::make_optional(qint64(stat.processors))
                                                 : std::nullopt;
    set.addWithin(QStringLiteral("cpu/processors"), processors, 0,
                  std::numeric_limits<quint8>::max());
    const bool hasTwoReadings = m_formerTimes && stat.times;
    const auto shares = hasTwoReadings ? ProcessorShares::between(*m_formerTimes, *stat.times)
                                       : std::nullopt;
    // Shares of no time at all are a division by zero.
    const ErrorTypes whenMissing = hasTwoReadings ? PROCESS_VALUE_ERROR_TYPE_DIVISION_BY_ZERO
                                                  : PROCESS_VALUE_ERROR_TYPE_NO_VALID_INPUT_VALUE;
    const auto addShare = [&](const QString &url, double percent) {
        set.add(url, shares ? std::make_optional(percent) : std::nullopt, whenMissing);
    };
    const ProcessorShares known = shares.value_or(ProcessorShares{});
    addShare(QStringLiteral("cpu/usage"), known.usage());
    addShare(QStringLiteral("cpu/user"), known.user);
    addShare(QStringLiteral("cpu/system"), known.system);
    addShare(QStringLiteral("cpu/waiting"), known.waiting);
    addShare(QStringLiteral("cpu/idle"), known.idle);
    m_formerTimes = stat.times;
}

void HostMeasurement::addMemory(ValueSet &set)
{
    constexpr qint64 bytesInKibibyte = 1024;
    const auto meminfo = ProcMeminfo::parse(
        readTextFile(path("proc/meminfo")).value_or(QByteArray()));
    set.add(QStringLiteral("memory/total"), meminfo.total);
    set.add(QStringLiteral("memory/available"), meminfo.available);
    set.add(QStringLiteral("memory/used"), meminfo.used());
    std::optional<qint64> change;
    if (m_formerAvailable && meminfo.available) {
        change = (qint64(*meminfo.available) - qint64(*m_formerAvailable)) / bytesInKibibyte;
    }
    set.addWithin(QStringLiteral("memory/change"), change, std::numeric_limits<qint32>::min(),
                  std::numeric_limits<qint32>::max());
    set.add(QStringLiteral("memory/swapTotal"), meminfo.swapTotal);
    set.add(QStringLiteral("memory/swapFree"), meminfo.swapFree);
    set.add(QStringLiteral("equipment/swap"), QVariant(meminfo.swapTotal.value_or(0) > 0));
    m_formerAvailable = meminfo.available;
}

void HostMeasurement::addLoad(ValueSet &set) const
{
    const auto loadavg = ProcLoadavg::parse(
        readTextFile(path("proc/loadavg")).value_or(QByteArray()));
    set.add(QStringLiteral("load/average1"), loadavg.average1);
    set.add(QStringLiteral("load/average5"), loadavg.average5);
    set.add(QStringLiteral("load/average15"), loadavg.average15);
    set.addWithin(QStringLiteral("load/tasks"), asSigned(loadavg.tasks), 0,
                  std::numeric_limits<quint32>::max());
}

void HostMeasurement::addNetwork(ValueSet &set)
{
    constexpr int slotCharacters = 16;
    const auto text = readTextFile(path("proc/net/dev"));
    const auto netDev = text ? std::make_optional(ProcNetDev::parse(*text)) : std::nullopt;
    set.addWithin(QStringLiteral("network/interfaces"),
                  netDev ? std::make_optional(qint64(netDev->interfaces.size())) : std::nullopt, 0,
                  std::numeric_limits<quint8>::max());
    const bool isConnected = netDev && !netDev->interfaces.isEmpty();
    set.add(QStringLiteral("equipment/network"), QVariant(isConnected));
    const auto connected = isConnected ? netDev : std::nullopt;
    const auto known = connected.value_or(ProcNetDev());
    set.add(QStringLiteral("network/busiest"),
            connected ? std::make_optional(cut(known.busiest(), slotCharacters)) : std::nullopt);
    set.add(QStringLiteral("network/received"),
            connected ? std::make_optional(known.receivedBytes()) : std::nullopt);
    set.add(QStringLiteral("network/sent"),
            connected ? std::make_optional(known.sentBytes()) : std::nullopt);
    set.addWithin(QStringLiteral("network/errors"),
                  connected ? asSigned(known.errors()) : std::nullopt, 0,
                  std::numeric_limits<quint32>::max());
    addNetworkRates(set, connected);
}

void HostMeasurement::addNetworkRates(ValueSet &set, const std::optional<ProcNetDev> &netDev)
{
    constexpr double millisecondsInSecond = 1000.0;
    std::optional<double> receiveRate;
    std::optional<double> sendRate;
    const bool hasTwoReadings = m_formerNetDev && netDev;
    if (hasTwoReadings && m_sinceNetwork.elapsed() > 0) {
        const double seconds = double(m_sinceNetwork.elapsed()) / millisecondsInSecond;
        receiveRate = (double(netDev->receivedBytes()) - double(m_formerNetDev->receivedBytes()))
                      / seconds;
        sendRate = (double(netDev->sentBytes()) - double(m_formerNetDev->sentBytes())) / seconds;
    }
    const ErrorTypes whenMissing = hasTwoReadings ? PROCESS_VALUE_ERROR_TYPE_DIVISION_BY_ZERO
                                                  : PROCESS_VALUE_ERROR_TYPE_NO_VALID_INPUT_VALUE;
    set.add(QStringLiteral("network/receiveRate"), receiveRate, whenMissing);
    set.add(QStringLiteral("network/sendRate"), sendRate, whenMissing);
    m_formerNetDev = netDev;
    m_sinceNetwork.start();
}

void HostMeasurement::addThermal(ValueSet &set)
{
    constexpr double absoluteZero = -273.15;
    constexpr int slotCharacters = 24;
    const auto zones = ThermalZones::read(path("sys/class/thermal"));
    m_temperature = ProcessValue(PROCESS_VALUE_ERROR_TYPE_SENSOR_BREAKAGE);
    std::optional<QString> name;
    if (zones.hottest && zones.hottest->degreesCelsius < absoluteZero) {
        m_temperature = ProcessValue(PROCESS_VALUE_ERROR_TYPE_INVALID_TEMPERATURE);
    } else if (zones.hottest) {
        m_temperature = ProcessValue(zones.hottest->degreesCelsius, PROCESS_VALUE_ERROR_TYPE_VALID);
        name = cut(zones.hottest->name, slotCharacters);
    }
    set.add(QStringLiteral("thermal/temperature"), m_temperature);
    set.add(QStringLiteral("thermal/hottestZone"), name);
    set.add(QStringLiteral("equipment/thermometer"), QVariant(zones.isAny));
}

void HostMeasurement::addPower(ValueSet &set) const
{
    const auto supplies = PowerSupplies::read(path("sys/class/power_supply"));
    set.add(QStringLiteral("power/mains"), supplies.isOnMains);
    set.add(QStringLiteral("power/battery"), supplies.batteryPercent);
    set.add(QStringLiteral("equipment/battery"), QVariant(supplies.batteryPercent.has_value()));
}
