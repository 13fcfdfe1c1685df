#include "Companion/SystemVSemaphoreBaseClass.h"
#include "ToolDescription.h"
#include "ToolProcess.h"

#include <QDir>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QtTest>

#include <csignal>
#include <memory>

namespace {

/// The host description under a key of the test's own.
class HostDescription
{
public:
    HostDescription()
    {
        QFile original(QStringLiteral(HOST_DESCRIPTION));
        if (!original.open(QIODevice::ReadOnly)) {
            qFatal("The host description cannot be read");
        }
        const QByteArray text = original.readAll();
        m_file = m_names.write(
            QStringLiteral("host.process.json"),
            QByteArray(text).replace("\"tesselHostMonitor\"", '"' + m_names.key().toUtf8() + '"'));
    }

    const QString &file() const { return m_file; }
    const ToolDescription &names() const { return m_names; }

private:
    ToolDescription m_names;
    QString m_file;
};

void writeBelow(const QString &root, const char *name, const QByteArray &text)
{
    const QString path = root + QLatin1Char('/') + QLatin1String(name);
    QVERIFY(QDir().mkpath(QFileInfo(path).path()));
    QFile file(path);
    QVERIFY(file.open(QIODevice::WriteOnly));
    QCOMPARE(file.write(text), qint64(text.size()));
}

/// The running publisher, after its ready line.
std::unique_ptr<QProcess> startPublisher(const QStringList &arguments)
{
    auto publisher = std::make_unique<QProcess>();
    publisher->start(QStringLiteral(HOST_MONITOR), arguments);
    while (!publisher->canReadLine() && publisher->waitForReadyRead(60000)) { }
    return publisher;
}

QHash<QString, QJsonObject> readAll(const QString &file)
{
    const ToolResult result = runTool({QStringLiteral("get"), QStringLiteral("--json"), file});
    const QJsonArray objects = QJsonDocument::fromJson(result.output.toUtf8()).array();
    QHash<QString, QJsonObject> values;
    for (const auto &object : objects) {
        values.insert(object.toObject().value(QStringLiteral("url")).toString(), object.toObject());
    }
    return values;
}

} // namespace

/// The host monitor as a program, and its description.
class tst_HostMonitor : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void descriptionHasNoFault();
    void descriptionUsesEveryStorageForm();
    void descriptionPlacesEveryElement();
    void thisMachineIsPublished();
    void machineWithEverythingHasNoError();
    void machineWithNothingHasNoNumber();
    void ratesComeWithTheSecondRound();
    void limitIsSetFromOutside();
    void signalLeavesNothing_data();
    void signalLeavesNothing();
    void countEndsIt();
    void wrongUseIsToldApart();
};

void tst_HostMonitor::descriptionHasNoFault()
{
    const HostDescription description;

    const ToolResult result = runTool({QStringLiteral("info"), description.file()});

    QCOMPARE(result.error, QString());
    QCOMPARE(result.exitCode, 0);
}

void tst_HostMonitor::descriptionUsesEveryStorageForm()
{
    const HostDescription description;
    const ToolResult result = runTool(
        {QStringLiteral("info"), QStringLiteral("--json"), description.file()});
    const QJsonObject info = QJsonDocument::fromJson(result.output.toUtf8()).object();
    const QJsonArray leaves = info.value(QStringLiteral("leaves")).toArray();
    QStringList forms;
    QHash<int, int> bitsOfByte;
    for (const auto &value : leaves) {
        const QJsonObject leaf = value.toObject();
        const QString type = leaf.value(QStringLiteral("type")).toString();
        const bool hasMetadata = leaf.value(QStringLiteral("sizeMetadata")).toInt() > 0;
        forms.append(type + (hasMetadata ? QStringLiteral("+") : QStringLiteral("-")));
        if (type == QLatin1String("bit")) {
            ++bitsOfByte[leaf.value(QStringLiteral("offset")).toInt()];
        }
    }

    QVERIFY(leaves.size() >= 24);
    QCOMPARE(info.value(QStringLiteral("doubleBuffer")).toBool(), true);
    for (const char *form :
         {"boolean+", "bit-", "int8+", "int8-", "int16+", "int32+", "int64+", "uint8+", "uint16+",
          "uint32+", "uint64+", "float+", "float-", "double+", "double-", "string+", "string-"}) {
        QVERIFY2(forms.contains(QLatin1String(form)), form);
    }
    QCOMPARE(bitsOfByte.size(), 1);
    QVERIFY(*bitsOfByte.cbegin() > 1);
}

void tst_HostMonitor::descriptionPlacesEveryElement()
{
    QFile file(QStringLiteral(HOST_DESCRIPTION));
    QVERIFY(file.open(QIODevice::ReadOnly));
    const QJsonObject root = QJsonDocument::fromJson(file.readAll()).object();
    QList<QJsonObject> nodes{root};
    QStringList labels;
    while (!nodes.isEmpty()) {
        const QJsonObject children = nodes.takeFirst().value(QStringLiteral("value")).toObject();
        QSet<int> positions;
        for (const auto &child : children) {
            const QJsonObject element = child.toObject();
            labels.append(element.value(QStringLiteral("labelTextId")).toString());
            positions.insert(element.value(QStringLiteral("displayPosition")).toInt());
            if (element.value(QStringLiteral("type")) == QLatin1String("treenode")) {
                nodes.append(element);
            }
        }
        QCOMPARE(positions.size(), children.size());
    }
    QVERIFY(!labels.contains(QString()));
    QCOMPARE(labels.removeDuplicates(), 0);
}

void tst_HostMonitor::thisMachineIsPublished()
{
    const HostDescription description;
    const auto publisher = startPublisher({description.file()});

    const auto values = readAll(description.file());

    QCOMPARE(publisher->readLine(),
             QStringLiteral("publishing %1: %2 leaves every 1000 ms; SIGINT or SIGTERM ends it\n")
                 .arg(description.names().key())
                 .arg(values.size())
                 .toUtf8());
    QCOMPARE(values[QStringLiteral("system/hostName")].value(QStringLiteral("value")).toString(),
             QSysInfo::machineHostName());
    QVERIFY(values[QStringLiteral("memory/total")].value(QStringLiteral("value")).toDouble() > 0);
    QVERIFY(values[QStringLiteral("cpu/processors")].value(QStringLiteral("value")).toInt() > 0);
    QVERIFY(values[QStringLiteral("monitor/round")].value(QStringLiteral("value")).toInt() > 0);
    QCOMPARE(values[QStringLiteral("monitor/note")].value(QStringLiteral("state")).toInt(), 3);
    publisher->terminate();
    QVERIFY(publisher->waitForFinished(60000));
    QCOMPARE(publisher->exitCode(), 0);
    QCOMPARE(publisher->readAllStandardError(), QByteArray());
}

void tst_HostMonitor::machineWithEverythingHasNoError()
{
    const HostDescription description;
    const QTemporaryDir root;
    writeBelow(root.path(), "proc/stat",
               "cpu  1 2 3 4 5 6 7 8 0 0\ncpu0 1 2 3 4 5 6 7 8 0 0\nctxt 9\nbtime 10\n"
               "processes 11\nprocs_running 12\nprocs_blocked 13\n");
    writeBelow(root.path(), "proc/meminfo",
               "MemTotal: 100 kB\nMemAvailable: 25 kB\nSwapTotal: 8 kB\nSwapFree: 4 kB\n");
    writeBelow(root.path(), "proc/loadavg", "0.5 1.5 2.5 1/77 99\n");
    writeBelow(root.path(), "proc/uptime", "123.5 1\n");
    writeBelow(root.path(), "proc/net/dev", "eth0: 100 1 2 0 0 0 0 0 50 1 3 0 0 0 0 0\n");
    writeBelow(root.path(), "proc/sys/kernel/hostname", "meter-7\n");
    writeBelow(root.path(), "proc/sys/kernel/osrelease", "6.1.0\n");
    writeBelow(root.path(), "sys/class/thermal/thermal_zone0/temp", "90500\n");
    writeBelow(root.path(), "sys/class/thermal/thermal_zone0/type", "cpu-thermal\n");
    writeBelow(root.path(), "sys/class/power_supply/AC/type", "Mains\n");
    writeBelow(root.path(), "sys/class/power_supply/AC/online", "1\n");
    writeBelow(root.path(), "sys/class/power_supply/BAT0/type", "Battery\n");
    writeBelow(root.path(), "sys/class/power_supply/BAT0/capacity", "64\n");
    const auto publisher = startPublisher(
        {QStringLiteral("--root"), root.path(), description.file()});

    const auto values = readAll(description.file());

    const QHash<QString, QJsonValue> expected{
        {QStringLiteral("system/hostName"), QStringLiteral("meter-7")},
        {QStringLiteral("system/kernel"), QStringLiteral("6.1.0")},
        {QStringLiteral("system/upTime"), 123.5},
        {QStringLiteral("system/bootTime"), 10},
        {QStringLiteral("system/contextSwitches"), 9},
        {QStringLiteral("system/processesCreated"), 11},
        {QStringLiteral("system/processesRunning"), 12},
        {QStringLiteral("system/processesBlocked"), 13},
        {QStringLiteral("cpu/processors"), 1},
        {QStringLiteral("memory/total"), 102400},
        {QStringLiteral("memory/available"), 25600},
        {QStringLiteral("memory/used"), 75},
        {QStringLiteral("memory/swapTotal"), 8192},
        {QStringLiteral("memory/swapFree"), 4096},
        {QStringLiteral("load/average1"), 0.5},
        {QStringLiteral("load/average5"), 1.5},
        {QStringLiteral("load/average15"), 2.5},
        {QStringLiteral("load/tasks"), 77},
        {QStringLiteral("network/interfaces"), 1},
        {QStringLiteral("network/busiest"), QStringLiteral("eth0")},
        {QStringLiteral("network/received"), 100},
        {QStringLiteral("network/sent"), 50},
        {QStringLiteral("network/errors"), 5},
        {QStringLiteral("thermal/temperature"), 90.5},
        {QStringLiteral("thermal/hottestZone"), QStringLiteral("cpu-thermal")},
        {QStringLiteral("thermal/limit"), 85},
        {QStringLiteral("thermal/tooHot"), true},
        {QStringLiteral("power/mains"), true},
        {QStringLiteral("power/battery"), 64},
        {QStringLiteral("equipment/swap"), true},
        {QStringLiteral("equipment/network"), true},
        {QStringLiteral("equipment/thermometer"), true},
        {QStringLiteral("equipment/battery"), true},
    };
    for (auto value = expected.cbegin(); value != expected.cend(); ++value) {
        const QJsonObject leaf = values.value(value.key());
        QVERIFY2(leaf.value(QStringLiteral("value")) == value.value(), qPrintable(value.key()));
        QVERIFY2(leaf.value(QStringLiteral("state")) == 0, qPrintable(value.key()));
    }
    publisher->terminate();
    QVERIFY(publisher->waitForFinished(60000));
}

void tst_HostMonitor::machineWithNothingHasNoNumber()
{
    const HostDescription description;
    const QTemporaryDir root;
    const auto publisher = startPublisher(
        {QStringLiteral("--root"), root.path(), description.file()});

    const auto values = readAll(description.file());

    const QStringList brokenSensor{QStringLiteral("thermal/temperature"),
                                   QStringLiteral("thermal/tooHot")};
    // What does not come from the files, and the forms that have no error state.
    const QStringList always{
        QStringLiteral("system/kernel"),         QStringLiteral("system/time"),
        QStringLiteral("system/utcOffset"),      QStringLiteral("thermal/limit"),
        QStringLiteral("equipment/swap"),        QStringLiteral("equipment/network"),
        QStringLiteral("equipment/thermometer"), QStringLiteral("equipment/battery"),
        QStringLiteral("monitor/round"),         QStringLiteral("monitor/duration"),
        QStringLiteral("monitor/priority")};
    QVERIFY(values.size() >= 24);
    for (auto value = values.cbegin(); value != values.cend(); ++value) {
        const int state = brokenSensor.contains(value.key()) ? 8
                          : always.contains(value.key())     ? 0
                                                             : 3;
        QVERIFY2(value->value(QStringLiteral("state")) == state, qPrintable(value.key()));
        if (state != 0) {
            QVERIFY2(value->value(QStringLiteral("value")).isNull(), qPrintable(value.key()));
        }
    }
    publisher->terminate();
    QVERIFY(publisher->waitForFinished(60000));
    QCOMPARE(publisher->exitCode(), 0);
}

void tst_HostMonitor::ratesComeWithTheSecondRound()
{
    const HostDescription description;
    const QTemporaryDir root;
    writeBelow(root.path(), "proc/stat", "cpu  1 2 3 4 5 6 7 8 0 0\n");
    const auto publisher = startPublisher({QStringLiteral("--root"), root.path(),
                                           QStringLiteral("--interval"), QStringLiteral("1"),
                                           description.file()});

    ToolProcess watch({QStringLiteral("watch"), QStringLiteral("--interval"), QStringLiteral("1"),
                       description.file(), QStringLiteral("cpu/usage")});
    // The times never change, so that from the second round on there is nothing to divide by.
    QString line;
    do {
        line = watch.nextLine();
    } while (!line.isEmpty() && !line.contains(QStringLiteral("division-by-zero")));

    QVERIFY(!line.isEmpty());
    publisher->terminate();
    QVERIFY(publisher->waitForFinished(60000));
    QCOMPARE(watch.finish().exitCode, 3);
    QVERIFY(!description.names().hasSemaphores());
}

void tst_HostMonitor::limitIsSetFromOutside()
{
    const HostDescription description;
    const QTemporaryDir root;
    writeBelow(root.path(), "sys/class/thermal/thermal_zone0/temp", "50000\n");
    const auto publisher = startPublisher({QStringLiteral("--root"), root.path(),
                                           QStringLiteral("--interval"), QStringLiteral("1"),
                                           description.file()});
    QCOMPARE(readAll(description.file())[QStringLiteral("thermal/tooHot")]
                 .value(QStringLiteral("value"))
                 .toBool(),
             false);

    QCOMPARE(runTool({QStringLiteral("set"), description.file(), QStringLiteral("thermal/limit"),
                      QStringLiteral("49.5")})
                 .exitCode,
             0);

    ToolProcess watch({QStringLiteral("watch"), QStringLiteral("--interval"), QStringLiteral("1"),
                       description.file(), QStringLiteral("thermal/tooHot")});
    QString line;
    do {
        line = watch.nextLine();
    } while (!line.isEmpty() && !line.contains(QStringLiteral("\ttrue\t")));
    QVERIFY(!line.isEmpty());
    publisher->terminate();
    QVERIFY(publisher->waitForFinished(60000));
    QCOMPARE(watch.finish().exitCode, 3);
    QVERIFY(!description.names().hasSemaphores());
}

void tst_HostMonitor::signalLeavesNothing_data()
{
    QTest::addColumn<int>("signal");
    QTest::newRow("SIGINT") << SIGINT;
    QTest::newRow("SIGTERM") << SIGTERM;
}

void tst_HostMonitor::signalLeavesNothing()
{
    QFETCH(int, signal);
    const HostDescription description;
    const auto publisher = startPublisher({description.file()});
    QVERIFY(description.names().hasSegment());
    QVERIFY(description.names().hasSemaphores());

    ::kill(static_cast<pid_t>(publisher->processId()), signal);

    QVERIFY(publisher->waitForFinished(60000));
    QCOMPARE(publisher->exitStatus(), QProcess::NormalExit);
    QCOMPARE(publisher->exitCode(), 0);
    QVERIFY(!description.names().hasSegment());
    QVERIFY(!description.names().hasSemaphores());
}

void tst_HostMonitor::countEndsIt()
{
    const HostDescription description;
    const auto publisher = startPublisher({QStringLiteral("--interval"), QStringLiteral("1"),
                                           QStringLiteral("--count"), QStringLiteral("3"),
                                           description.file()});

    QVERIFY(publisher->state() == QProcess::NotRunning || publisher->waitForFinished(60000));
    QCOMPARE(publisher->exitCode(), 0);
    QVERIFY(!description.names().hasSegment());
}

void tst_HostMonitor::wrongUseIsToldApart()
{
    const auto exitCode = [](const QStringList &arguments) {
        return QProcess::execute(QStringLiteral(HOST_MONITOR), arguments);
    };

    QCOMPARE(exitCode({QStringLiteral("/no/such.process.json")}), 1);
    QCOMPARE(exitCode({}), 2);
    QCOMPARE(exitCode({QStringLiteral("--interval"), QStringLiteral("0"), QStringLiteral("f")}), 2);
}

QTEST_GUILESS_MAIN(tst_HostMonitor)
#include "tst_HostMonitor.moc"
