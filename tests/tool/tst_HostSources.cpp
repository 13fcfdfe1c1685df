#include "PowerSupplies.h"
#include "ProcLoadavg.h"
#include "ProcMeminfo.h"
#include "ProcNetDev.h"
#include "ProcStat.h"
#include "ProcUptime.h"
#include "ThermalZones.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <QtTest>

namespace {

void writeFile(const QString &path, const QByteArray &text)
{
    QVERIFY(QDir().mkpath(QFileInfo(path).path()));
    QFile file(path);
    QVERIFY(file.open(QIODevice::WriteOnly));
    QCOMPARE(file.write(text), qint64(text.size()));
}

} // namespace

/// What the host monitor reads out of the texts of /proc and /sys.
class tst_HostSources : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void statOfTwoProcessors();
    void statOfNothing();
    void statOfAnOldKernelHasNoTimes();
    void sharesAddUpToAHundred();
    void sharesOfNoTimeAreNone();
    void timeThatStepsBackCountsAsNone();
    void meminfoInBytes();
    void meminfoWithoutItsLines();
    void loadavgOfFiveFields();
    void loadavgOfNothing();
    void uptime();
    void netDevLeavesTheLoopbackOut();
    void netDevWithoutInterfaces();
    void netDevTakesANumberRightBehindTheColon();
    void hottestZoneWins();
    void zoneThatCannotBeReadIsStillAZone();
    void noZoneIsNoThermometer();
    void suppliesOfALaptop();
    void noSupplyTellsNothing();
};

void tst_HostSources::statOfTwoProcessors()
{
    const ProcStat stat = ProcStat::parse("cpu  100 20 30 4000 50 6 7 8 0 0\n"
                                          "cpu0 50 10 15 2000 25 3 3 4 0 0\n"
                                          "cpu1 50 10 15 2000 25 3 4 4 0 0\n"
                                          "intr 12 1 2\n"
                                          "ctxt 307402\n"
                                          "btime 1795268524\n"
                                          "processes 6983\n"
                                          "procs_running 2\n"
                                          "procs_blocked 0\n");

    QVERIFY(stat.times);
    QCOMPARE(stat.times->user, quint64(120));
    QCOMPARE(stat.times->system, quint64(51));
    QCOMPARE(stat.times->idle, quint64(4000));
    QCOMPARE(stat.times->waiting, quint64(50));
    QCOMPARE(stat.processors, 2U);
    QCOMPARE(stat.contextSwitches.value(), quint64(307402));
    QCOMPARE(stat.bootTime.value(), quint64(1795268524));
    QCOMPARE(stat.processesCreated.value(), quint64(6983));
    QCOMPARE(stat.processesRunning.value(), quint64(2));
    QCOMPARE(stat.processesBlocked.value(), quint64(0));
}

void tst_HostSources::statOfNothing()
{
    const ProcStat stat = ProcStat::parse({});

    QVERIFY(!stat.times);
    QCOMPARE(stat.processors, 0U);
    QVERIFY(!stat.contextSwitches);
    QVERIFY(!stat.bootTime);
}

void tst_HostSources::statOfAnOldKernelHasNoTimes()
{
    QVERIFY(!ProcStat::parse("cpu  100 20 30 4000\n").times);
}

void tst_HostSources::sharesAddUpToAHundred()
{
    const auto shares = ProcessorShares::between({100, 50, 1000, 10}, {130, 60, 1050, 20});

    QVERIFY(shares);
    QCOMPARE(shares->user, 30.0);
    QCOMPARE(shares->system, 10.0);
    QCOMPARE(shares->idle, 50.0);
    QCOMPARE(shares->waiting, 10.0);
    QCOMPARE(shares->usage(), 40.0);
}

void tst_HostSources::sharesOfNoTimeAreNone()
{
    QVERIFY(!ProcessorShares::between({1, 2, 3, 4}, {1, 2, 3, 4}));
}

void tst_HostSources::timeThatStepsBackCountsAsNone()
{
    const auto shares = ProcessorShares::between({100, 0, 1000, 10}, {110, 0, 1030, 8});

    QVERIFY(shares);
    QCOMPARE(shares->waiting, 0.0);
    QCOMPARE(shares->idle, 75.0);
}

void tst_HostSources::meminfoInBytes()
{
    const ProcMeminfo meminfo = ProcMeminfo::parse("MemTotal:       1000 kB\n"
                                                   "MemFree:         100 kB\n"
                                                   "MemAvailable:    250 kB\n"
                                                   "SwapCached:       17 kB\n"
                                                   "SwapTotal:       400 kB\n"
                                                   "SwapFree:        300 kB\n");

    QCOMPARE(meminfo.total.value(), quint64(1024000));
    QCOMPARE(meminfo.available.value(), quint64(256000));
    QCOMPARE(meminfo.swapTotal.value(), quint64(409600));
    QCOMPARE(meminfo.swapFree.value(), quint64(307200));
    QCOMPARE(meminfo.used().value(), 75.0);
}

void tst_HostSources::meminfoWithoutItsLines()
{
    QVERIFY(!ProcMeminfo::parse({}).used());
    QVERIFY(!ProcMeminfo::parse("MemTotal: 0 kB\nMemAvailable: 0 kB\n").used());
    QVERIFY(!ProcMeminfo::parse("MemTotal: much kB\n").total);
}

void tst_HostSources::loadavgOfFiveFields()
{
    const ProcLoadavg loadavg = ProcLoadavg::parse("0.42 0.37 1.30 2/311 6985\n");

    QCOMPARE(loadavg.average1.value(), 0.42);
    QCOMPARE(loadavg.average5.value(), 0.37);
    QCOMPARE(loadavg.average15.value(), 1.30);
    QCOMPARE(loadavg.tasks.value(), quint64(311));
}

void tst_HostSources::loadavgOfNothing()
{
    const ProcLoadavg loadavg = ProcLoadavg::parse({});

    QVERIFY(!loadavg.average1);
    QVERIFY(!loadavg.tasks);
}

void tst_HostSources::uptime()
{
    QCOMPARE(parseUptime("1313.52 2565.36\n").value(), 1313.52);
    QVERIFY(!parseUptime({}));
    QVERIFY(!parseUptime("soon\n"));
}

void tst_HostSources::netDevLeavesTheLoopbackOut()
{
    const ProcNetDev netDev = ProcNetDev::parse(
        "Inter-|   Receive                            |  Transmit\n"
        " face |bytes    packets errs drop fifo frame compressed multicast|bytes    packets errs\n"
        "    lo:    3267      29    9    0    0     0          0         0     3267      29    0\n"
        "  eth0:    1000      10    1    0    0     0          0         0      200       4    2\n"
        "  eth1:       5       1    0    0    0     0          0         0        7       1    "
        "0\n");

    QCOMPARE(netDev.interfaces.size(), 2);
    QCOMPARE(netDev.receivedBytes(), quint64(1005));
    QCOMPARE(netDev.sentBytes(), quint64(207));
    QCOMPARE(netDev.errors(), quint64(3));
    QCOMPARE(netDev.busiest(), QStringLiteral("eth0"));
}

void tst_HostSources::netDevWithoutInterfaces()
{
    const ProcNetDev netDev = ProcNetDev::parse({});

    QVERIFY(netDev.interfaces.isEmpty());
    QCOMPARE(netDev.busiest(), QString());
}

void tst_HostSources::netDevTakesANumberRightBehindTheColon()
{
    const ProcNetDev netDev = ProcNetDev::parse("eth0:12345678901 1 0 0 0 0 0 0 2 1 0 0\n");

    QCOMPARE(netDev.receivedBytes(), quint64(12345678901));
}

void tst_HostSources::hottestZoneWins()
{
    const QTemporaryDir dir;
    writeFile(dir.filePath(QStringLiteral("thermal_zone0/temp")), "45000\n");
    writeFile(dir.filePath(QStringLiteral("thermal_zone0/type")), "acpitz\n");
    writeFile(dir.filePath(QStringLiteral("thermal_zone1/temp")), "61500\n");
    writeFile(dir.filePath(QStringLiteral("thermal_zone1/type")), "x86_pkg_temp\n");
    writeFile(dir.filePath(QStringLiteral("cooling_device0/temp")), "99000\n");

    const ThermalZones zones = ThermalZones::read(dir.path());

    QVERIFY(zones.isAny);
    QVERIFY(zones.hottest);
    QCOMPARE(zones.hottest->degreesCelsius, 61.5);
    QCOMPARE(zones.hottest->name, QStringLiteral("x86_pkg_temp"));
}

void tst_HostSources::zoneThatCannotBeReadIsStillAZone()
{
    const QTemporaryDir dir;
    writeFile(dir.filePath(QStringLiteral("thermal_zone0/type")), "broken\n");

    const ThermalZones zones = ThermalZones::read(dir.path());

    QVERIFY(zones.isAny);
    QVERIFY(!zones.hottest);
}

void tst_HostSources::noZoneIsNoThermometer()
{
    const QTemporaryDir dir;

    QVERIFY(!ThermalZones::read(dir.path()).isAny);
    QVERIFY(!ThermalZones::read(dir.filePath(QStringLiteral("missing"))).isAny);
}

void tst_HostSources::suppliesOfALaptop()
{
    const QTemporaryDir dir;
    writeFile(dir.filePath(QStringLiteral("AC/type")), "Mains\n");
    writeFile(dir.filePath(QStringLiteral("AC/online")), "0\n");
    writeFile(dir.filePath(QStringLiteral("BAT0/type")), "Battery\n");
    writeFile(dir.filePath(QStringLiteral("BAT0/capacity")), "87\n");

    const PowerSupplies supplies = PowerSupplies::read(dir.path());

    QCOMPARE(supplies.isOnMains.value(), false);
    QCOMPARE(supplies.batteryPercent.value(), 87);
}

void tst_HostSources::noSupplyTellsNothing()
{
    const QTemporaryDir dir;

    const PowerSupplies supplies = PowerSupplies::read(dir.path());

    QVERIFY(!supplies.isOnMains);
    QVERIFY(!supplies.batteryPercent);
}

QTEST_GUILESS_MAIN(tst_HostSources)
#include "tst_HostSources.moc"
