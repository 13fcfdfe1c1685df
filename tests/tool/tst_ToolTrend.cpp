#include "PacedPublisher.h"
#include "PseudoTerminal.h"
#include "support/LogCapture.h"

#include <QXmlStreamReader>
#include <QtTest>

#include <algorithm>
#include <memory>

#include <sys/syscall.h>

using namespace ProcessDataDefinitions;

namespace {

QStringList trendOf(const DoctoredPlant &plant, const QStringList &options = {})
{
    return QStringList{QStringLiteral("trend"), QStringLiteral("--for"), QStringLiteral("1h")}
           + options + QStringList{plant.file, plant.url};
}

QJsonObject objectOf(const ToolResult &result)
{
    return QJsonDocument::fromJson(result.output.toUtf8()).object();
}

/// Whether the process waits for somebody to take what it writes.
bool isInsideWrite(pid_t process)
{
    QFile call(QStringLiteral("/proc/%1/syscall").arg(process));
    return call.open(QIODevice::ReadOnly)
           && call.readAll().startsWith(QByteArray::number(SYS_write) + ' ');
}

/// Whether the process has been told of something that it has not asked for yet.
bool isTold(pid_t process)
{
    const QDir facts(QStringLiteral("/proc/%1/fdinfo").arg(process));
    const QRegularExpression waiting(QStringLiteral("\neventfd-count: +[0-9a-f]*[1-9a-f]"));
    const QStringList descriptors = facts.entryList(QDir::Files);
    return std::any_of(descriptors.cbegin(), descriptors.cend(), [&](const QString &name) {
        QFile fact(facts.filePath(name));
        return fact.open(QIODevice::ReadOnly)
               && QString::fromLatin1(fact.readAll()).contains(waiting);
    });
}

/// The region of a plant, as whose publisher the test sees that `trend` has begun: it shows a first picture on
/// its terminal.
class Trend
{
public:
    Trend(const DoctoredPlant &plant, const QStringList &options)
        : m_terminal(trendOf(plant, options), 24, 60, {})
    {
    }
    bool hasBegun() { return m_terminal.readUntil("min "); }
    PseudoTerminal &terminal() { return m_terminal; }

private:
    PseudoTerminal m_terminal;
};

} // namespace

/// `tessel trend` beside a publisher.
class tst_ToolTrend : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void jsonHasPointsAndFigures();
    void plainOutputHasBars();
    void errorStateIsAGap();
    void terminalIsDrawnWhileItLasts();
    void terseIsALineASetWithValuesAlone();
    void terseHasEachSet();
    void patternNamesSeveralValues();
    void textIsLeftOut();
    void pictureIsDrawn();
    void pictureAloneGoesToStandardOutput();
    void dryRunWritesNoPicture();
    void interruptPrintsWhatThereIs_data();
    void interruptPrintsWhatThereIs();
    void setBeforeTheSignalIsShown();
    void regionThatIsRemovedEndsItWithWhatWasSeen();
    void regionThatIsReplacedEndsItWithWhatWasSeen();
    void regionThatIsReplacedWhileItIsHeldUpEndsIt_data();
    void regionThatIsReplacedWhileItIsHeldUpEndsIt();
    void regionThatIsReplacedJustBeforeTheEndIsTold();
    void singleBufferIsSampled();
};

void tst_ToolTrend::jsonHasPointsAndFigures()
{
    const DoctoredPlant plant;
    const LogCapture log;
    HeldRegion region(plant.file);
    QVERIFY(region.publish(plant.url, validValue(7)));

    const ToolResult result = runTool({QStringLiteral("trend"), QStringLiteral("--for=300ms"),
                                       QStringLiteral("--json"), plant.file, plant.url});

    QCOMPARE(result.error, QString());
    QCOMPARE(result.exitCode, 0);
    const QJsonObject object = objectOf(result);
    QCOMPARE(object.value(QStringLiteral("key")).toString(), plant.key());
    QVERIFY(object.value(QStringLiteral("seconds")).toDouble() >= 0.3);
    const QJsonArray values = object.value(QStringLiteral("values")).toArray();
    QCOMPARE(values.size(), 1);
    const QJsonObject value = values[0].toObject();
    QCOMPARE(value.keys(),
             (QStringList{QStringLiteral("max"), QStringLiteral("mean"), QStringLiteral("min"),
                          QStringLiteral("notValid"), QStringLiteral("points"),
                          QStringLiteral("unit"), QStringLiteral("url"), QStringLiteral("valid")}));
    QCOMPARE(value.value(QStringLiteral("url")).toString(), plant.url);
    QCOMPARE(value.value(QStringLiteral("min")).toDouble(), 7.0);
    QCOMPARE(value.value(QStringLiteral("max")).toDouble(), 7.0);
    QCOMPARE(value.value(QStringLiteral("mean")).toDouble(), 7.0);
    QCOMPARE(value.value(QStringLiteral("valid")).toInt(), 1);
    QCOMPARE(value.value(QStringLiteral("notValid")).toInt(), 0);
    const QJsonArray points = value.value(QStringLiteral("points")).toArray();
    QCOMPARE(points.size(), 1);
    QCOMPARE(points[0].toObject().value(QStringLiteral("value")).toDouble(), 7.0);
    QCOMPARE(points[0].toObject().value(QStringLiteral("state")).toInt(-1), 0);
    QCOMPARE(points[0].toObject().value(QStringLiteral("stateName")).toString(),
             QStringLiteral("valid"));
    QVERIFY(points[0].toObject().value(QStringLiteral("seconds")).isDouble());
}

void tst_ToolTrend::plainOutputHasBars()
{
    const DoctoredPlant plant;
    const LogCapture log;
    HeldRegion region(plant.file);
    QVERIFY(region.publish(plant.url, validValue(7)));

    const ToolResult result = runTool(
        {QStringLiteral("trend"), QStringLiteral("--for=100ms"), plant.file, plant.url});

    const QStringList lines = result.output.split(QLatin1Char('\n'));
    QVERIFY(lines[0].startsWith(plant.key() + QStringLiteral(": 0.")));
    QCOMPARE(lines[1], QStringLiteral("pump/speed: min 7, max 7, mean 7, 1 valid, 0 not valid"));
    QCOMPARE(lines.size(), 7);
    QVERIFY(lines[5].endsWith(QString(40, QLatin1Char('#'))));
    QCOMPARE(result.exitCode, 0);
}

void tst_ToolTrend::errorStateIsAGap()
{
    const DoctoredPlant plant;
    const LogCapture log;
    HeldRegion region(plant.file);
    QVERIFY(region.publish(plant.url, ProcessValue(PROCESS_VALUE_ERROR_TYPE_TIMEOUT)));
    const QStringList arguments{QStringLiteral("trend"), QStringLiteral("--for=100ms"), plant.file,
                                plant.url};

    const QStringList lines = runTool(arguments).output.split(QLatin1Char('\n'));
    QCOMPARE(lines[1], QStringLiteral("pump/speed: min -, max -, mean -, 0 valid, 1 not valid"));
    QCOMPARE(lines[2].trimmed(), QString());
    QVERIFY(lines[5].endsWith(QString(40, QLatin1Char('x'))));

    const QJsonObject object = objectOf(runTool(arguments + QStringList(QStringLiteral("--json"))));
    const QJsonObject value = object.value(QStringLiteral("values")).toArray()[0].toObject();
    QCOMPARE(value.value(QStringLiteral("mean")), QJsonValue(QJsonValue::Null));
    const QJsonObject point = value.value(QStringLiteral("points")).toArray()[0].toObject();
    QCOMPARE(point.value(QStringLiteral("value")), QJsonValue(QJsonValue::Null));
    QCOMPARE(point.value(QStringLiteral("stateName")).toString(), QStringLiteral("timeout"));
}

void tst_ToolTrend::terminalIsDrawnWhileItLasts()
{
    const DoctoredPlant plant;
    const LogCapture log;
    HeldRegion region(plant.file);
    QVERIFY(region.publish(plant.url, validValue(7)));
    Trend trend(plant, {});

    QVERIFY(trend.terminal().readUntil("pump/speed: min 7, max 7, mean 7, 1 valid"));
    QVERIFY(region.publish(plant.url, validValue(9)));
    QVERIFY(trend.terminal().readUntil("pump/speed: min 7, max 9, mean 8, 2 valid"));
    QVERIFY(trend.terminal().readUntil("█"));
    trend.terminal().type("\x03");

    QCOMPARE(trend.terminal().finish(), 0);
}

void tst_ToolTrend::terseIsALineASetWithValuesAlone()
{
    DoctoredPlant plant;
    plant.description().add(QStringLiteral("pump/flow"), QStringLiteral("double"),
                            ToolDescription::Metadata::ErrorState, 8);
    plant.description().write();
    const LogCapture log;
    HeldRegion region(plant.file);
    QVERIFY(region.write(QStringLiteral("pump/flow"), validValue(1.0 / 3.0)));
    QVERIFY(region.publish(plant.url, ProcessValue(PROCESS_VALUE_ERROR_TYPE_TIMEOUT)));

    for (const char *option : {"-t", "--terse"}) {
        const ToolResult result = runTool({QStringLiteral("trend"), QStringLiteral("--for=50ms"),
                                           QLatin1String(option), plant.file,
                                           QStringLiteral("pump/*")});

        QCOMPARE(result.error, QString());
        QCOMPARE(result.output, QStringLiteral("\t0.3333333333333333\n"));
        QCOMPARE(result.exitCode, 0);
    }
}

void tst_ToolTrend::terseHasEachSet()
{
    const DoctoredPlant plant;
    const LogCapture log;
    PacedPublisher publisher(plant);
    QVERIFY(publisher.isReady());
    ToolProcess trend(trendOf(plant, {QStringLiteral("-t")}));
    for (const double number : {7.0, 9.0, 8.0}) {
        QVERIFY(publisher.publishTo(trend.pid(), validValue(number)));
    }

    trend.signal(SIGINT);

    const ToolResult result = trend.finish();
    QCOMPARE(result.error, QString());
    // The first one is that of the creator, in which nobody has written.
    QCOMPARE(result.output.section(QLatin1Char('\n'), 1), QStringLiteral("7\n9\n8\n"));
    QCOMPARE(result.exitCode, 0);
}

void tst_ToolTrend::patternNamesSeveralValues()
{
    DoctoredPlant plant;
    plant.description().add(QStringLiteral("pump/flow"), QStringLiteral("double"),
                            ToolDescription::Metadata::ErrorState, 8);
    plant.description().write();
    const LogCapture log;
    const HeldRegion region(plant.file);

    const QJsonArray values =
        objectOf(runTool({QStringLiteral("trend"), QStringLiteral("--for=1ms"),
                          QStringLiteral("--json"), plant.file, QStringLiteral("pump/*")}))
            .value(QStringLiteral("values"))
            .toArray();

    QCOMPARE(values.size(), 2);
    QCOMPARE(values[1].toObject().value(QStringLiteral("url")).toString(),
             QStringLiteral("pump/flow"));
}

void tst_ToolTrend::textIsLeftOut()
{
    DoctoredPlant plant;
    plant.description().add(QStringLiteral("pump/name"), QStringLiteral("string"),
                            ToolDescription::Metadata::ErrorState, 8);
    plant.description().write();
    const LogCapture log;
    const HeldRegion region(plant.file);

    const ToolResult both = runTool(
        {QStringLiteral("trend"), QStringLiteral("--for=1ms"), plant.file, QStringLiteral("pump")});
    QCOMPARE(both.exitCode, 0);
    QCOMPARE(both.error, QStringLiteral("tessel: note: 'pump/name' of %1 is left out: a text has "
                                        "no trend\n")
                             .arg(plant.file));

    const ToolResult text = runTool({QStringLiteral("trend"), QStringLiteral("--for=1ms"),
                                     plant.file, QStringLiteral("pump/name")});
    QCOMPARE(text.exitCode, 5);
    QVERIFY(text.error.endsWith(
        QStringLiteral("tessel: %1: no number among the values\n").arg(plant.file)));
}

void tst_ToolTrend::pictureIsDrawn()
{
    const DoctoredPlant plant;
    const LogCapture log;
    HeldRegion region(plant.file);
    QVERIFY(region.publish(plant.url, validValue(7)));
    const QTemporaryDir folder;
    const QString path = folder.filePath(QStringLiteral("trend.svg"));

    const ToolResult result = runTool({QStringLiteral("trend"), QStringLiteral("--for=50ms"),
                                       QStringLiteral("--svg"), path, plant.file, plant.url});

    QCOMPARE(result.error, QString());
    QCOMPARE(result.exitCode, 0);
    QFile file(path);
    QVERIFY(file.open(QIODevice::ReadOnly));
    QXmlStreamReader xml(&file);
    int paths = 0;
    QStringList texts;
    while (!xml.atEnd()) {
        xml.readNext();
        if (xml.isStartElement() && xml.name() == QLatin1String("path")) {
            ++paths;
            QVERIFY(xml.attributes().value(QStringLiteral("d")).startsWith(QLatin1String("M")));
        } else if (xml.isStartElement() && xml.name() == QLatin1String("text")) {
            texts.append(xml.readElementText());
        }
    }
    QVERIFY2(!xml.hasError(), qPrintable(xml.errorString()));
    QCOMPARE(paths, 1);
    QVERIFY(texts.contains(plant.url));
    QVERIFY(texts.contains(QStringLiteral("min 7, max 7, mean 7, 1 valid, 0 not valid")));
}

void tst_ToolTrend::pictureAloneGoesToStandardOutput()
{
    const DoctoredPlant plant;
    const LogCapture log;
    const HeldRegion region(plant.file);

    const ToolResult result = runTool({QStringLiteral("trend"), QStringLiteral("--for=1ms"),
                                       QStringLiteral("--svg=-"), plant.file, plant.url});

    QCOMPARE(result.exitCode, 0);
    QVERIFY(result.output.startsWith(QStringLiteral("<?xml ")));
    QVERIFY(!result.output.contains(QStringLiteral("\npump/speed: ")));
}

void tst_ToolTrend::dryRunWritesNoPicture()
{
    const DoctoredPlant plant;
    const LogCapture log;
    const HeldRegion region(plant.file);
    const QTemporaryDir folder;
    const QString path = folder.filePath(QStringLiteral("trend.svg"));

    const ToolResult result = runTool({QStringLiteral("trend"), QStringLiteral("--for=1ms"),
                                       QStringLiteral("--dry-run"), QStringLiteral("--svg"), path,
                                       plant.file, plant.url});

    QCOMPARE(result.exitCode, 0);
    QVERIFY2(QRegularExpression(QStringLiteral("^tessel: note: [1-9][0-9]+ bytes, not written to "
                                               "\\S+/trend.svg\n$"))
                 .match(result.error)
                 .hasMatch(),
             qPrintable(result.error));
    QVERIFY(!QFile::exists(path));
}

void tst_ToolTrend::interruptPrintsWhatThereIs_data()
{
    QTest::addColumn<int>("signal");
    QTest::newRow("SIGINT") << SIGINT;
    QTest::newRow("SIGTERM") << SIGTERM;
    QTest::newRow("SIGHUP") << SIGHUP;
}

void tst_ToolTrend::interruptPrintsWhatThereIs()
{
    QFETCH(int, signal);
    const DoctoredPlant plant;
    const LogCapture log;
    HeldRegion region(plant.file);
    QVERIFY(region.publish(plant.url, validValue(7)));
    // Its picture is there as soon as it watches.
    Trend trend(plant, {});
    QVERIFY(trend.hasBegun());

    QVERIFY(trend.terminal().signal(signal));

    QCOMPARE(trend.terminal().finish(), 0);
    QVERIFY(trend.terminal().shown().contains("mean 7, 1 valid"));
}

/// Both are there when it goes on, and the signal is looked at first.
void tst_ToolTrend::setBeforeTheSignalIsShown()
{
    const DoctoredPlant plant;
    const LogCapture log;
    PacedPublisher publisher(plant);
    QVERIFY(publisher.isReady());
    ToolProcess trend(trendOf(plant, {QStringLiteral("--json")}));
    QVERIFY(publisher.waitUntilDone(trend.pid()));
    trend.signal(SIGSTOP);
    QVERIFY(waitUntil([&] { return processState(static_cast<pid_t>(trend.pid())) == 'T'; }));
    QVERIFY(publisher.publish(validValue(7)));
    trend.signal(SIGINT);
    trend.signal(SIGCONT);

    const ToolResult result = trend.finish();

    const QJsonObject shown =
        objectOf(result).value(QStringLiteral("values")).toArray().at(0).toObject();
    QCOMPARE(shown.value(QStringLiteral("max")), QJsonValue(7));
    QCOMPARE(shown.value(QStringLiteral("valid")), QJsonValue(1));
    QCOMPARE(result.exitCode, 0);
}

void tst_ToolTrend::regionThatIsRemovedEndsItWithWhatWasSeen()
{
    const DoctoredPlant plant;
    const LogCapture log;
    auto region = std::make_unique<HeldRegion>(plant.file);
    QVERIFY(region->publish(plant.url, validValue(7)));
    Trend trend(plant, {});
    QVERIFY(trend.hasBegun());

    region.reset();

    QCOMPARE(trend.terminal().finish(), 3);
    QVERIFY(trend.terminal().shown().contains("mean 7, 1 valid"));
    QVERIFY(trend.terminal().shown().contains("has gone, its creator has ended"));
}

void tst_ToolTrend::regionThatIsReplacedEndsItWithWhatWasSeen()
{
    const DoctoredPlant plant;
    const LogCapture log;
    HeldRegion region(plant.file);
    QVERIFY(region.publish(plant.url, validValue(7)));
    Trend trend(plant, {});
    QVERIFY(trend.hasBegun());

    const HeldRegion later(plant.file);

    QCOMPARE(trend.terminal().finish(), 8);
    QVERIFY(trend.terminal().shown().contains("mean 7, 1 valid"));
    QVERIFY(trend.terminal().shown().contains("was replaced by a new one; start again"));
}

void tst_ToolTrend::regionThatIsReplacedWhileItIsHeldUpEndsIt_data()
{
    QTest::addColumn<bool>("isRemovedBefore");
    QTest::newRow("replaced") << false;
    QTest::newRow("removed and made anew") << true;
}

/// Its terminal takes nothing until it has been told that the former region has gone, and longer than it leaves
/// between two looks at the name: both are due together then.
void tst_ToolTrend::regionThatIsReplacedWhileItIsHeldUpEndsIt()
{
    constexpr int lookInterval = 250;
    QFETCH(bool, isRemovedBefore);
    const DoctoredPlant plant;
    const LogCapture log;
    auto region = std::make_unique<HeldRegion>(plant.file);
    QVERIFY(region->publish(plant.url, validValue(7)));
    Trend trend(plant, {});
    QVERIFY(trend.hasBegun());
    const pid_t pid = trend.terminal().pid();
    QElapsedTimer heldUp;
    trend.terminal().type("\x13");
    QVERIFY(waitUntil([pid] { return isInsideWrite(pid); }));
    heldUp.start();

    if (isRemovedBefore) {
        region.reset();
    }
    HeldRegion later(plant.file);
    QVERIFY(later.publish(plant.url, validValue(1000)));
    QVERIFY(waitUntil([&] { return isTold(pid) && heldUp.hasExpired(lookInterval); }));
    trend.terminal().type("\x11");

    QVERIFY(trend.terminal().readUntil("was replaced by a new one; start again"));
    QCOMPARE(trend.terminal().finish(), 8);
    QVERIFY(trend.terminal().shown().contains("mean 7, 1 valid"));
    QVERIFY(!trend.terminal().shown().contains("1000"));
}

/// Nobody tells of a single buffer, and there is no other look before the end.
void tst_ToolTrend::regionThatIsReplacedJustBeforeTheEndIsTold()
{
    DoctoredPlant plant;
    plant.description().setRoot(QStringLiteral("doubleBuffer"), false);
    plant.description().write();
    const LogCapture log;
    HeldRegion region(plant.file);
    QVERIFY(region.write(plant.url, validValue(5)));
    Trend trend(plant, {});
    QVERIFY(trend.hasBegun());
    const pid_t pid = trend.terminal().pid();
    QVERIFY(trend.terminal().signal(SIGSTOP));
    QVERIFY(waitUntil([pid] { return processState(pid) == 'T'; }));

    const HeldRegion later(plant.file);
    QVERIFY(trend.terminal().signal(SIGINT));
    QVERIFY(trend.terminal().signal(SIGCONT));

    QCOMPARE(trend.terminal().finish(), 8);
    QVERIFY(trend.terminal().shown().contains("was replaced by a new one; start again"));
}

void tst_ToolTrend::singleBufferIsSampled()
{
    DoctoredPlant plant;
    plant.description().setRoot(QStringLiteral("doubleBuffer"), false);
    plant.description().write();
    const LogCapture log;
    HeldRegion region(plant.file);
    QVERIFY(region.write(plant.url, validValue(5)));
    Trend trend(plant, {});
    QVERIFY(trend.terminal().readUntil("min 5, max 5"));

    QVERIFY(region.write(plant.url, validValue(6)));

    QVERIFY(trend.terminal().readUntil("min 5, max 6"));
}

QTEST_GUILESS_MAIN(tst_ToolTrend)
#include "tst_ToolTrend.moc"
