#include "mqtt/HistoryRing.h"
#include "service/Refusal.h"
#include "support/ResourceLimit.h"

#include <QDir>
#include <QTemporaryDir>
#include <QtTest>

#include <csignal>

/// What waits while the broker is away, in memory and on the disk.
class tst_HistoryRing : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    /// A file that reaches the limit of its size is told by the failed write alone.
    void initTestCase() { std::signal(SIGXFSZ, SIG_IGN); }
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
};

void tst_HistoryRing::ringDropsTheOldest()
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

void tst_HistoryRing::entryThatIsTooLargeIsDropped()
{
    HistoryRing ring(1000);

    ring.add({QStringLiteral("d"), QByteArray(1000, 'x')});

    QVERIFY(ring.isEmpty());
    QCOMPARE(ring.dropped(), qint64{1});
}

void tst_HistoryRing::ringOnTheDiskIsReadInOrder()
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

void tst_HistoryRing::whatComesBehindABrokenRecordIsFound()
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

void tst_HistoryRing::smallerRingKeepsTheNewestOfTheDisk()
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

QByteArray tst_HistoryRing::marksOf(HistoryRing &ring)
{
    QByteArray marks;
    while (!ring.isEmpty()) {
        marks += ring.first().payload.left(1);
        ring.removeFirst();
    }
    return marks;
}

QFileInfoList tst_HistoryRing::filesOf(const QTemporaryDir &folder)
{
    return QDir(folder.path()).entryInfoList({QStringLiteral("history.*")});
}

void tst_HistoryRing::orderOnTheDiskIsThatOfNoClock()
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

void tst_HistoryRing::whatComesBehindACrashIsReadAgain_data()
{
    QTest::addColumn<int>("cut");
    // Up to two records and a piece of a third.
    for (int cut = 1; cut <= 60; ++cut) {
        QTest::addRow("%d bytes", cut) << cut;
    }
}

void tst_HistoryRing::whatComesBehindACrashIsReadAgain()
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

void tst_HistoryRing::whatFoundNoRoomCutsNothingOff()
{
    const QTemporaryDir folder;
    {
        HistoryRing ring(100000, folder.path());
        ring.add(marked('a'));
        {
            const ResourceLimit full(RLIMIT_FSIZE, rlim_t(filesOf(folder)[0].size() + 7));
            ring.add(marked('b'));
        }
        ring.add(marked('c'));
        QCOMPARE(ring.count(), 3);
    }

    HistoryRing again(100000, folder.path());

    QCOMPARE(marksOf(again), QByteArray("ac"));
}

void tst_HistoryRing::largeEntriesKeepTheBoundOnTheDisk()
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

void tst_HistoryRing::folderOfAnotherNodeIsRefused()
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

QTEST_GUILESS_MAIN(tst_HistoryRing)
#include "tst_HistoryRing.moc"
