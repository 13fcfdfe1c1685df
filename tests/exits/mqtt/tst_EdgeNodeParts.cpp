#include "mqtt/Backoff.h"
#include "mqtt/HistoryRing.h"
#include "mqtt/HostState.h"
#include "mqtt/ReportRules.h"
#include "service/Refusal.h"

#include <QDir>
#include <QTemporaryDir>
#include <QtTest>

#include <cmath>
#include <csignal>
#include <limits>

#include <sys/resource.h>

using ProcessDataDefinitions::PROCESS_VALUE_ERROR_TYPE_OVERRANGE;
using ProcessDataDefinitions::PROCESS_VALUE_ERROR_TYPE_VALID;

namespace {

/// Files of this process end at so many bytes, as on a disk that is full.
class LongestFile
{
public:
    explicit LongestFile(qint64 bytes)
    {
        m_handler = std::signal(SIGXFSZ, SIG_IGN);
        getrlimit(RLIMIT_FSIZE, &m_former);
        rlimit limit = m_former;
        limit.rlim_cur = static_cast<rlim_t>(bytes);
        setrlimit(RLIMIT_FSIZE, &limit);
    }
    ~LongestFile()
    {
        setrlimit(RLIMIT_FSIZE, &m_former);
        std::signal(SIGXFSZ, m_handler);
    }

    LongestFile(const LongestFile &) = delete;
    LongestFile &operator=(const LongestFile &) = delete;

private:
    rlimit m_former{};
    void (*m_handler)(int) = SIG_DFL;
};

} // namespace

/// The decisions of an edge node that need neither a broker nor a region.
class tst_EdgeNodeParts : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void hostIsHeardInTheOrderOfItsTimes();
    void whatIsNoStateOfAHostSaysNothing();
    void delayDoublesUpToItsBound();
    void firstRuleThatLeadsToAUrlHolds();
    void onlyWhatMovedByMoreThanTheDeadbandIsNews();
    void largeIntegersHaveTheirDistance_data();
    void largeIntegersHaveTheirDistance();
    void notANumberIsNewsOnce();
    void stateIsNewsAtOnce();
    void askedValueIsNews();
    void ringDropsTheOldest();
    void entryThatIsTooLargeIsDropped();
    void ringOnTheDiskIsReadInOrder();
    void whatComesBehindABrokenRecordIsFound();
    void smallerRingKeepsTheNewestOfTheDisk();
    void orderOnTheDiskIsThatOfNoClock();
    void whatComesBehindACrashIsReadAgain_data();
    void whatComesBehindACrashIsReadAgain();
    void whatFoundNoRoomCutsNothingOff();
    void largeEntriesKeepTheBoundOnTheDisk();
    void folderOfAnotherNodeIsRefused();

private:
    /// The first bytes of the entries in a ring, in their order.
    static QByteArray marksOf(HistoryRing &ring);
    static QFileInfoList filesOf(const QTemporaryDir &folder);
    static HistoryRing::Entry marked(char mark, int size = 10)
    {
        return {QStringLiteral("d"), QByteArray(size, mark)};
    }
    static ProcessValue valid(const QVariant &value)
    {
        return {value, PROCESS_VALUE_ERROR_TYPE_VALID};
    }
    static ReportedLeaf told(const ReportRule &rule, const QVariant &value, qint64 at)
    {
        ReportedLeaf leaf(rule);
        leaf.markTold(valid(value), at);
        return leaf;
    }
};

void tst_EdgeNodeParts::hostIsHeardInTheOrderOfItsTimes()
{
    HostState host;

    QVERIFY(host.take("{\"online\":true,\"timestamp\":5}") == HostState::Change::Online);
    QVERIFY(host.take("{\"online\":false,\"timestamp\":4}") == HostState::Change::None);
    QVERIFY(host.isOnline());
    QVERIFY(host.take("{\"online\":true,\"timestamp\":6}") == HostState::Change::None);
    QVERIFY(host.take("{\"online\":false,\"timestamp\":6}") == HostState::Change::Offline);
    QVERIFY(!host.isOnline());
    host.forget();
    QVERIFY(host.take("{\"online\":true,\"timestamp\":5}") == HostState::Change::None);
    QVERIFY(host.take("{\"online\":true,\"timestamp\":6}") == HostState::Change::Online);
}

void tst_EdgeNodeParts::whatIsNoStateOfAHostSaysNothing()
{
    HostState host;

    for (const char *const text :
         {"", "ONLINE", "[]", "{\"online\":1,\"timestamp\":5}", "{\"online\":true}",
          "{\"online\":true,\"timestamp\":\"5\"}", "{\"online\":true,\"timestamp\":-2}"}) {
        QVERIFY2(host.take(text) == HostState::Change::None, text);
    }
    QVERIFY(!host.isOnline());
}

void tst_EdgeNodeParts::delayDoublesUpToItsBound()
{
    Backoff backoff(100, 500);

    for (int round = 0; round < 2; ++round) {
        for (const int bound : {100, 200, 400, 500, 500}) {
            const int delay = backoff.next();
            QVERIFY2(delay >= bound / 2 && delay <= bound, qPrintable(QString::number(delay)));
        }
        backoff.reset();
    }
}

void tst_EdgeNodeParts::firstRuleThatLeadsToAUrlHolds()
{
    ReportRules rules;
    rules.add(QStringLiteral("a/b"), {1, 10});
    rules.add(QStringLiteral("a/**"), {2, 20});

    QCOMPARE(rules.ruleOf(QStringLiteral("a/b")).deadband, 1.0);
    QCOMPARE(rules.ruleOf(QStringLiteral("a/c")).leastInterval, qint64{20});
    QCOMPARE(rules.ruleOf(QStringLiteral("b")).deadband, 0.0);
}

void tst_EdgeNodeParts::onlyWhatMovedByMoreThanTheDeadbandIsNews()
{
    const ReportedLeaf leaf = told({2, 50}, 10.0, 1000);

    QVERIFY(!leaf.dueTime(valid(12.0)));
    QVERIFY(!leaf.dueTime(valid(8.0)));
    QCOMPARE(leaf.dueTime(valid(12.5)).value(), qint64{1050});
    QCOMPARE(leaf.dueTime(valid(7.5)).value(), qint64{1050});
    // A text has no distance.
    QVERIFY(told({2, 0}, QStringLiteral("1"), 0).dueTime(valid(QStringLiteral("2"))).has_value());
}

void tst_EdgeNodeParts::largeIntegersHaveTheirDistance_data()
{
    QTest::addColumn<QVariant>("told");
    QTest::addColumn<QVariant>("now");
    QTest::addColumn<bool>("isNews");
    constexpr qlonglong least = std::numeric_limits<qlonglong>::min();
    constexpr qlonglong most = std::numeric_limits<qlonglong>::max();
    constexpr qulonglong mostUnsigned = std::numeric_limits<qulonglong>::max();
    const auto row = [](const char *name, const QVariant &told, const QVariant &now, bool isNews) {
        QTest::newRow(name) << told << now << isNews;
    };
    row("up by more", most - 11, most, true);
    row("down by more", most, most - 11, true);
    row("by as much", most - 10, most, false);
    row("from end to end", least, most, true);
    row("from end to end, down", most, least, true);
    row("over zero", qlonglong(-5), qlonglong(5), false);
    row("over zero by more", qlonglong(6), qlonglong(-5), true);
    row("unsigned up by more", mostUnsigned - 11, mostUnsigned, true);
    row("unsigned down by as much", mostUnsigned, mostUnsigned - 10, false);
    row("unsigned from end to end", qulonglong(0), mostUnsigned, true);
}

void tst_EdgeNodeParts::largeIntegersHaveTheirDistance()
{
    QFETCH(const QVariant, told);
    QFETCH(const QVariant, now);
    QFETCH(const bool, isNews);

    QCOMPARE(tst_EdgeNodeParts::told({10, 0}, told, 0).dueTime(valid(now)).has_value(), isNews);
}

void tst_EdgeNodeParts::notANumberIsNewsOnce()
{
    QVERIFY(told({2, 0}, 10.0, 0).dueTime(valid(std::nan(""))).has_value());
    QVERIFY(!told({2, 0}, std::nan(""), 0).dueTime(valid(std::nan(""))));
}

void tst_EdgeNodeParts::stateIsNewsAtOnce()
{
    const ReportedLeaf leaf = told({1000, 1000}, 10.0, 1000);

    QCOMPARE(leaf.dueTime({PROCESS_VALUE_ERROR_TYPE_OVERRANGE}).value(), qint64{0});
    QCOMPARE(ReportedLeaf().dueTime(valid(1.0)).value(), qint64{0});
}

void tst_EdgeNodeParts::askedValueIsNews()
{
    ReportedLeaf leaf = told({}, 10.0, 1000);
    QVERIFY(!leaf.dueTime(valid(10.0)));

    leaf.ask();

    QCOMPARE(leaf.dueTime(valid(10.0)).value(), qint64{0});
    leaf.markTold(valid(10.0), 1001);
    QVERIFY(!leaf.dueTime(valid(10.0)));
}

void tst_EdgeNodeParts::ringDropsTheOldest()
{
    HistoryRing ring(1000);
    for (char i = 0; i < 20; ++i) {
        ring.add({QStringLiteral("d"), QByteArray(100, i)});
        QVERIFY(ring.bytes() <= 1000);
    }

    QCOMPARE(ring.count() + ring.dropped(), qint64{20});
    QVERIFY(ring.count() > 3);
    for (char i = char(20 - ring.count()); i < 20; ++i) {
        QCOMPARE(ring.first().payload, QByteArray(100, i));
        ring.removeFirst();
    }
    QVERIFY(ring.isEmpty());
    QCOMPARE(ring.bytes(), qint64{0});
}

void tst_EdgeNodeParts::entryThatIsTooLargeIsDropped()
{
    HistoryRing ring(1000);

    ring.add({QStringLiteral("d"), QByteArray(1000, 'x')});

    QVERIFY(ring.isEmpty());
    QCOMPARE(ring.dropped(), qint64{1});
}

void tst_EdgeNodeParts::ringOnTheDiskIsReadInOrder()
{
    const QTemporaryDir folder;
    {
        HistoryRing ring(100000, folder.path());
        for (char i = 0; i < 5; ++i) {
            ring.add({QStringLiteral("d"), QByteArray(10, i)});
        }
    }

    {
        HistoryRing again(100000, folder.path());

        QCOMPARE(again.count(), 5);
        for (char i = 0; i < 5; ++i) {
            QCOMPARE(again.first().payload, QByteArray(10, i));
            again.removeFirst();
        }
    }
    QVERIFY(HistoryRing(100000, folder.path()).isEmpty());
}

void tst_EdgeNodeParts::whatComesBehindABrokenRecordIsFound()
{
    const QTemporaryDir folder;
    HistoryRing(100000, folder.path()).add({QStringLiteral("d"), "before"});
    const QFileInfoList files = QDir(folder.path()).entryInfoList(QDir::Files);
    QCOMPARE(files.size(), 1);
    QFile file(files.first().filePath());
    QVERIFY(file.open(QIODevice::Append));
    // A power cut came while a record was written.
    QVERIFY(file.write(QByteArray::fromHex("00000050616263")) > 0);
    file.close();
    HistoryRing(100000, folder.path()).add({QStringLiteral("d"), "behind"});

    HistoryRing again(100000, folder.path());

    QCOMPARE(again.count(), 2);
    QCOMPARE(again.first().payload, QByteArray("before"));
    again.removeFirst();
    QCOMPARE(again.first().payload, QByteArray("behind"));
}

void tst_EdgeNodeParts::smallerRingKeepsTheNewestOfTheDisk()
{
    const QTemporaryDir folder;
    {
        HistoryRing ring(100000, folder.path());
        for (char i = 0; i < 20; ++i) {
            ring.add({QStringLiteral("d"), QByteArray(100, i)});
        }
    }

    HistoryRing smaller(1000, folder.path());

    QVERIFY(smaller.count() > 3);
    QVERIFY(smaller.bytes() <= 1000);
    for (char i = char(20 - smaller.count()); i < 20; ++i) {
        QCOMPARE(smaller.first().payload, QByteArray(100, i));
        smaller.removeFirst();
    }
}

QByteArray tst_EdgeNodeParts::marksOf(HistoryRing &ring)
{
    QByteArray marks;
    while (!ring.isEmpty()) {
        marks += ring.first().payload.left(1);
        ring.removeFirst();
    }
    return marks;
}

QFileInfoList tst_EdgeNodeParts::filesOf(const QTemporaryDir &folder)
{
    return QDir(folder.path()).entryInfoList({QStringLiteral("history.*")});
}

void tst_EdgeNodeParts::orderOnTheDiskIsThatOfNoClock()
{
    const QTemporaryDir folder;
    {
        HistoryRing ring(2000, folder.path());
        for (char mark = 'a'; mark <= 'h'; ++mark) {
            ring.add(marked(mark, 150));
        }
    }
    // As a clock that was set back in between would have dated them.
    QCOMPARE(filesOf(folder).size(), 2);
    for (const auto &info : filesOf(folder)) {
        QFile file(info.filePath());
        QVERIFY(file.open(QIODevice::ReadWrite));
        const bool isNewer = file.readAll().contains("hhhh");
        QVERIFY(file.setFileTime(QDateTime::currentDateTime().addSecs(isNewer ? -7200 : -60),
                                 QFileDevice::FileModificationTime));
    }
    {
        HistoryRing ring(2000, folder.path());
        ring.add(marked('i', 150));
    }

    HistoryRing again(2000, folder.path());

    const QByteArray marks = marksOf(again);
    QVERIFY2(QByteArray("abcdefghi").endsWith(marks) && marks.size() > 4, marks.constData());
}

void tst_EdgeNodeParts::whatComesBehindACrashIsReadAgain_data()
{
    QTest::addColumn<int>("cut");
    // Up to two records and a piece of a third.
    for (int cut = 1; cut <= 60; ++cut) {
        QTest::addRow("%d bytes", cut) << cut;
    }
}

void tst_EdgeNodeParts::whatComesBehindACrashIsReadAgain()
{
    QFETCH(const int, cut);
    constexpr int recordBytes = 26;
    const QTemporaryDir folder;
    {
        HistoryRing ring(100000, folder.path());
        for (const char mark : {'a', 'b', 'c', 'd'}) {
            ring.add(marked(mark));
        }
    }
    const QFileInfoList files = filesOf(folder);
    QCOMPARE(files.size(), 1);
    QCOMPARE(files[0].size(), qint64{4 * recordBytes});
    QVERIFY(QFile::resize(files[0].filePath(), files[0].size() - cut));
    {
        HistoryRing ring(100000, folder.path());
        ring.add(marked('e'));
        ring.add(marked('f'));
    }

    HistoryRing again(100000, folder.path());

    const int whole = (4 * recordBytes - cut) / recordBytes;
    QCOMPARE(marksOf(again), QByteArray("abcd").left(whole) + "ef");
}

void tst_EdgeNodeParts::whatFoundNoRoomCutsNothingOff()
{
    const QTemporaryDir folder;
    {
        HistoryRing ring(100000, folder.path());
        ring.add(marked('a'));
        {
            const LongestFile full(filesOf(folder)[0].size() + 7);
            ring.add(marked('b'));
        }
        ring.add(marked('c'));
        QCOMPARE(ring.count(), 3);
    }

    HistoryRing again(100000, folder.path());

    QCOMPARE(marksOf(again), QByteArray("ac"));
}

void tst_EdgeNodeParts::largeEntriesKeepTheBoundOnTheDisk()
{
    const QTemporaryDir folder;
    HistoryRing ring(1000, folder.path());
    for (const int size : {400, 800, 100, 900, 450, 450, 300, 800}) {
        ring.add(marked('x', size));

        qint64 bytes = 0;
        for (const auto &file : filesOf(folder)) {
            bytes += file.size();
        }
        QVERIFY2(bytes <= 1000, qPrintable(QString::number(bytes)));
        QVERIFY(bytes > size);
    }
}

void tst_EdgeNodeParts::folderOfAnotherNodeIsRefused()
{
    const QTemporaryDir folder;
    HistoryRing ring(1000, folder.path());
    ring.add(marked('a'));

    try {
        const HistoryRing other(1000, folder.path());
        QFAIL("taken twice");
    } catch (const Refusal &refusal) {
        QCOMPARE(refusal.code, ExitCode::NoAccess);
        QCOMPARE(refusal.text,
                 QStringLiteral("%1: another node keeps what waits to be sent in this folder "
                                "already; name another one with 'history-dir'")
                     .arg(folder.path()));
    }
    QCOMPARE(marksOf(ring), QByteArray("a"));
}

QTEST_GUILESS_MAIN(tst_EdgeNodeParts)
#include "tst_EdgeNodeParts.moc"
