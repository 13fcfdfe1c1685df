#include "HeldRegion.h"
#include "PseudoTerminal.h"
#include "ToolProcess.h"
#include "support/ChildProcess.h"

#include <QtTest>

#include <csignal>
#include <memory>

#include <sched.h>

using namespace ProcessDataDefinitions;
using Metadata = ToolDescription::Metadata;

namespace {

const QByteArray hideCursor = QByteArrayLiteral("\033[?25l");
const QByteArray showCursor = QByteArrayLiteral("\033[?25h");
const QByteArray red = QByteArrayLiteral("\033[31m");

/// The shown text in lines, without the sequences that move the cursor or give colour.
QList<QByteArray> plainLines(QByteArray shown)
{
    const QRegularExpression sequence(QStringLiteral("\033\\[[?0-9;]*[A-Za-z]|\r"));
    return QString::fromUtf8(shown).remove(sequence).toUtf8().split('\n');
}

/// The time in front of a line.
QDateTime timeOf(const QString &line)
{
    return QDateTime::fromString(line.section(QLatin1Char('\t'), 0, 0), Qt::ISODateWithMs);
}

} // namespace

/// `tessel watch` on a pipe and on a terminal.
class tst_ToolWatch : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();

    void pipeGetsALineAValue();
    void countLimitsTheSets();
    void pipeGetsNoControlSequences();
    void onChangeShowsEachPublishedSet();
    void onChangeShowsNoSetTwice();
    void onChangeKeepsTheLeastDistance();
    void onChangeEndsWithTheCreator();
    void onChangeNeedsADoubleBuffer();
    void signalEndsIt();
    void endOfTheCreatorEndsIt();
    void newRegionEndsIt();
    void terminalGetsATableInPlace();
    void cursorIsHiddenOnlyWhileDrawing();
    void colourIsLeftOutOnRequest();
    void dumbTerminalGetsLines();
    void pictureFitsTheTerminal();
    void newSizeIsFollowed();
    void interruptKeyEndsIt();

private:
    std::unique_ptr<ToolDescription> m_description;
    QString m_file;
    std::unique_ptr<HeldRegion> m_region;
};

void tst_ToolWatch::init()
{
    m_description = std::make_unique<ToolDescription>();
    m_description->add(QStringLiteral("n/level"), QStringLiteral("double"), Metadata::ErrorState, 8,
                       {{QStringLiteral("unit"), QStringLiteral("m")}});
    m_description->add(QStringLiteral("n/broken"), QStringLiteral("int32"), Metadata::ErrorState,
                       4);
    m_file = m_description->write();
    m_region = std::make_unique<HeldRegion>(m_file);
    QVERIFY(m_region->publish(QStringLiteral("n/level"), validValue(1.0 / 3.0)));
    QVERIFY(m_region->publish(QStringLiteral("n/broken"),
                              ProcessValue(PROCESS_VALUE_ERROR_TYPE_SENSOR_SHORT_CIRCUIT)));
}

void tst_ToolWatch::cleanup()
{
    m_region.reset();
    m_description.reset();
}

void tst_ToolWatch::pipeGetsALineAValue()
{
    const ToolResult result = runTool(
        {QStringLiteral("watch"), QStringLiteral("--count"), QStringLiteral("1"), m_file});

    QCOMPARE(result.exitCode, 0);
    QCOMPARE(result.error, QString());
    const QString time = QStringLiteral("\\d{4}-\\d\\d-\\d\\dT\\d\\d:\\d\\d:\\d\\d\\.\\d{3}Z");
    const QRegularExpression expected(
        QStringLiteral("^%1\tn/level\t0\\.3333333333333333\tm\tvalid\n"
                       "%1\tn/broken\t\t\tsensor-short-circuit\n$")
            .arg(time));
    QVERIFY2(expected.match(result.output).hasMatch(), qPrintable(result.output));
}

void tst_ToolWatch::countLimitsTheSets()
{
    const ToolResult result = runTool({QStringLiteral("watch"), QStringLiteral("--count"),
                                       QStringLiteral("3"), QStringLiteral("--interval"),
                                       QStringLiteral("1"), m_file, QStringLiteral("n/broken")});

    QCOMPARE(result.exitCode, 0);
    QCOMPARE(result.output.count(QLatin1Char('\n')), 3);
    QCOMPARE(result.output.count(QStringLiteral("n/broken")), 3);
}

void tst_ToolWatch::pipeGetsNoControlSequences()
{
    const ToolResult result = runTool({QStringLiteral("watch"), QStringLiteral("--count"),
                                       QStringLiteral("2"), QStringLiteral("--interval"),
                                       QStringLiteral("1"), m_file},
                                      {QStringLiteral("TERM=xterm")});

    QVERIFY(!result.output.contains(QLatin1Char('\033')));
}

void tst_ToolWatch::onChangeShowsEachPublishedSet()
{
    ToolProcess watch({QStringLiteral("watch"), QStringLiteral("--on-change"),
                       QStringLiteral("--interval"), QStringLiteral("1"), QStringLiteral("--count"),
                       QStringLiteral("4"), m_file, QStringLiteral("n/level")});
    QVERIFY(watch.nextLine().contains(QStringLiteral("\t0.333")));

    // Whoever looked every millisecond would show the former one in between.
    for (int value = 2; value < 5; ++value) {
        QVERIFY(m_region->publish(QStringLiteral("n/level"), validValue(double(value))));
        QCOMPARE(watch.nextLine().section(QLatin1Char('\t'), 1),
                 QStringLiteral("n/level\t%1\tm\tvalid\n").arg(value));
    }
    const ToolResult result = watch.finish();
    QCOMPARE(result.output, QString());
    QCOMPARE(result.error, QString());
    QCOMPARE(result.exitCode, 0);
}

void tst_ToolWatch::onChangeShowsNoSetTwice()
{
    ToolProcess watch({QStringLiteral("watch"), QStringLiteral("--on-change"),
                       QStringLiteral("--count"), QStringLiteral("500"), m_file,
                       QStringLiteral("n/level")});
    QString former = watch.nextLine().section(QLatin1Char('\t'), 2, 2);
    ChildProcess publisher([this](const ChildSide &side) {
        ProcessDataManager manager;
        const auto root = manager.createProcessDataFromFile(
            m_file, ProcessDataManager::InitTypeSharedMemoryAttach);
        CHILD_VERIFY(root);
        const auto leaf = root->getLeafProcessDataValue(QStringLiteral("n/level"));
        for (int value = 1; !side.hasWord(); ++value) {
            CHILD_VERIFY(leaf->setValue(validValue(double(value))));
            CHILD_VERIFY(manager.swapReadAndWriteBuffer());
            sched_yield();
        }
        return 0;
    });

    int shownTwice = 0;
    int shown = 1;
    for (QString line = watch.nextLine(); !line.isEmpty(); line = watch.nextLine()) {
        const QString value = line.section(QLatin1Char('\t'), 2, 2);
        shownTwice += value == former ? 1 : 0;
        former = value;
        ++shown;
    }
    publisher.tell();

    QCOMPARE(publisher.waitForExit(), 0);
    QCOMPARE(shown, 500);
    QCOMPARE(shownTwice, 0);
}

void tst_ToolWatch::onChangeKeepsTheLeastDistance()
{
    ToolProcess watch({QStringLiteral("watch"), QStringLiteral("--on-change"),
                       QStringLiteral("--interval"), QStringLiteral("1000"),
                       QStringLiteral("--count"), QStringLiteral("2"), m_file,
                       QStringLiteral("n/level")});
    const QString former = watch.nextLine();
    QVERIFY(m_region->publish(QStringLiteral("n/level"), validValue(2.0)));

    const QString latter = watch.nextLine();

    QVERIFY(latter.contains(QStringLiteral("\t2\t")));
    // By the times that they say: this process may have read them late.
    const qint64 distance = timeOf(former).msecsTo(timeOf(latter));
    QVERIFY2(distance >= 1000, qPrintable(QString::number(distance)));
    QCOMPARE(watch.finish().exitCode, 0);
}

void tst_ToolWatch::onChangeEndsWithTheCreator()
{
    ToolProcess watch({QStringLiteral("watch"), QStringLiteral("--on-change"), m_file,
                       QStringLiteral("n/level")});
    watch.nextLine();

    m_region.reset();

    const ToolResult result = watch.finish();
    QCOMPARE(result.error,
             QStringLiteral("tessel: %1: the region '%2' has gone, its creator has ended\n")
                 .arg(m_file, m_description->key()));
    QCOMPARE(result.exitCode, 3);
}

void tst_ToolWatch::onChangeNeedsADoubleBuffer()
{
    m_region.reset();
    m_description->setRoot(QStringLiteral("doubleBuffer"), false);
    m_file = m_description->write();

    const ToolResult result = runTool(
        {QStringLiteral("watch"), QStringLiteral("--on-change"), m_file});

    QCOMPARE(result.error,
             QStringLiteral("tessel: watch: --on-change needs a double buffer, '%1' describes a "
                            "single one; see 'tessel watch --help'\n")
                 .arg(m_file));
    QCOMPARE(result.exitCode, 2);
}

void tst_ToolWatch::signalEndsIt()
{
    ToolProcess watch(
        {QStringLiteral("watch"), QStringLiteral("--interval"), QStringLiteral("3600000"), m_file});
    QVERIFY(!watch.nextLine().isEmpty());

    watch.signal(SIGTERM);
    const ToolResult result = watch.finish();

    QCOMPARE(result.exitCode, 0);
    QCOMPARE(result.error, QString());
}

void tst_ToolWatch::endOfTheCreatorEndsIt()
{
    ToolProcess watch(
        {QStringLiteral("watch"), QStringLiteral("--interval"), QStringLiteral("1"), m_file});
    QVERIFY(!watch.nextLine().isEmpty());

    m_region.reset();
    const ToolResult result = watch.finish();

    QCOMPARE(result.exitCode, 3);
    QCOMPARE(result.error,
             QStringLiteral("tessel: %1: the region '%2' has gone, its creator has ended\n")
                 .arg(m_file, m_description->key()));
    QVERIFY(!m_description->hasSemaphores());
}

void tst_ToolWatch::newRegionEndsIt()
{
    ToolProcess watch(
        {QStringLiteral("watch"), QStringLiteral("--interval"), QStringLiteral("200"), m_file});
    QVERIFY(!watch.nextLine().isEmpty());

    const HeldRegion successor(m_file);
    const ToolResult result = watch.finish();

    QCOMPARE(result.exitCode, 8);
    QCOMPARE(result.error,
             QStringLiteral("tessel: %1: the region '%2' was replaced by a new one; start again\n")
                 .arg(m_file, m_description->key()));
}

void tst_ToolWatch::terminalGetsATableInPlace()
{
    PseudoTerminal terminal({QStringLiteral("watch"), QStringLiteral("--interval"),
                             QStringLiteral("1"), QStringLiteral("--count"), QStringLiteral("2"),
                             m_file},
                            10, 60, {});

    QCOMPARE(terminal.finish(), 0);

    const QByteArray shown = terminal.shown();
    const auto lines = plainLines(shown);
    QCOMPARE(lines.value(1), QByteArrayLiteral("URL          VALUE  UNIT  STATE"));
    QCOMPARE(lines.value(2), QByteArrayLiteral("n/level   0.333333  m     valid"));
    QCOMPARE(lines.value(3), QByteArrayLiteral("n/broken                  sensor-short-circuit"));
    // The second picture is drawn over the four lines of the first.
    QCOMPARE(shown.count("\033[4A"), 1);
    QVERIFY(shown.contains(red + "n/broken"));
    QVERIFY(!shown.contains(red + "n/level"));
}

void tst_ToolWatch::cursorIsHiddenOnlyWhileDrawing()
{
    PseudoTerminal terminal({QStringLiteral("watch"), QStringLiteral("--interval"),
                             QStringLiteral("1"), QStringLiteral("--count"), QStringLiteral("3"),
                             m_file},
                            10, 60, {});

    QCOMPARE(terminal.finish(), 0);

    QVERIFY(terminal.shown().startsWith(hideCursor));
    QVERIFY(terminal.shown().endsWith("\n\033[J" + showCursor));
    QCOMPARE(terminal.shown().count(hideCursor), 3);
    QCOMPARE(terminal.shown().count("\n\033[J" + showCursor + hideCursor), 2);
}

void tst_ToolWatch::colourIsLeftOutOnRequest()
{
    PseudoTerminal terminal(
        {QStringLiteral("watch"), QStringLiteral("--count"), QStringLiteral("1"), m_file}, 10, 60,
        {QStringLiteral("NO_COLOR=1")});

    QCOMPARE(terminal.finish(), 0);
    QVERIFY(terminal.shown().contains(hideCursor));
    QVERIFY(!terminal.shown().contains(red));
}

void tst_ToolWatch::dumbTerminalGetsLines()
{
    PseudoTerminal terminal(
        {QStringLiteral("watch"), QStringLiteral("--count"), QStringLiteral("1"), m_file}, 10, 60,
        {QStringLiteral("TERM=dumb")});

    QCOMPARE(terminal.finish(), 0);
    QVERIFY(!terminal.shown().contains('\033'));
    QVERIFY(terminal.shown().contains("Z\tn/level\t"));
}

void tst_ToolWatch::pictureFitsTheTerminal()
{
    ToolDescription description;
    for (int i = 0; i < 20; ++i) {
        description.add(QStringLiteral("node/leaf%1").arg(i), QStringLiteral("int32"),
                        Metadata::ErrorState, 4);
    }
    const QString file = description.write();
    const HeldRegion region(file);

    PseudoTerminal terminal(
        {QStringLiteral("watch"), QStringLiteral("--count"), QStringLiteral("1"), file}, 8, 20, {});

    QCOMPARE(terminal.finish(), 0);
    const auto lines = plainLines(terminal.shown());
    // The last one is the empty line in which the cursor stands.
    QCOMPARE(lines.size(), 8);
    for (const auto &line : lines) {
        QVERIFY2(QString::fromUtf8(line).size() <= 20, line.constData());
    }
    QCOMPARE(lines.value(6), QByteArrayLiteral("... and 16 more; nam"));
}

void tst_ToolWatch::newSizeIsFollowed()
{
    PseudoTerminal terminal(
        {QStringLiteral("watch"), QStringLiteral("--interval"), QStringLiteral("3600000"), m_file},
        10, 60, {});
    QVERIFY(terminal.readUntil(showCursor));

    terminal.resize(10, 12);

    QVERIFY(terminal.readUntil("\033[H\033[2J"));
    QVERIFY(terminal.readUntil(showCursor));
    const QByteArray redrawn = terminal.shown().mid(terminal.shown().indexOf("\033[2J"));
    const auto lines = plainLines(redrawn);
    for (const auto &line : lines) {
        QVERIFY2(line.size() <= 12, line.constData());
    }
    terminal.type("\003");
    QCOMPARE(terminal.finish(), 0);
}

void tst_ToolWatch::interruptKeyEndsIt()
{
    PseudoTerminal terminal(
        {QStringLiteral("watch"), QStringLiteral("--interval"), QStringLiteral("3600000"), m_file},
        10, 60, {});
    QVERIFY(terminal.readUntil(showCursor));
    const int picture = terminal.shown().size();

    terminal.type("\003");

    QCOMPARE(terminal.finish(), 0);
    // The terminal itself may echo the key.
    QVERIFY(!terminal.shown().mid(picture).contains('\033'));
}

QTEST_GUILESS_MAIN(tst_ToolWatch)
#include "tst_ToolWatch.moc"
