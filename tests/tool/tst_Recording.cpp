#include "recordings/Crc32.h"
#include "recordings/RecordingReader.h"
#include "recordings/SetRing.h"
#include "text/Failure.h"

#include <QBuffer>
#include <QTemporaryDir>
#include <QtEndian>
#include <QtTest>

#include <algorithm>

#include <sys/resource.h>
#include <unistd.h>

namespace {

using namespace RecordingFormat;

RecordingHead headOf(int values)
{
    RecordingHead head;
    head.key = QStringLiteral("plant");
    head.fingerprint = QStringLiteral("0x0000000000000001");
    for (int i = 0; i < values; ++i) {
        head.values.append({QStringLiteral("n/v%1").arg(i),
                            QStringLiteral("int32"),
                            {},
                            4,
                            i % 2 == 0 ? stateSize : 0,
                            0});
    }
    head.description = QByteArrayLiteral("{}");
    return head;
}

/// Each set has its own number in every value.
QByteArray imageOf(const ImageLayout &layout, int number)
{
    return QByteArray(static_cast<int>(layout.size()), static_cast<char>(number));
}

/// As many changes as there are values.
QByteArray changesOf(const ImageLayout &layout, int number)
{
    QByteArray changes;
    for (const auto &place : layout.places()) {
        appendChange(changes, 0, place.stateSize != 0);
        changes.append(static_cast<int>(place.size + place.stateSize), static_cast<char>(number));
    }
    return changes;
}

SetFacts factsOf(int number)
{
    return {quint64(number), 0, number, quint64(number) * 1000};
}

void addSets(RecordingWriter &writer, const ImageLayout &layout, int first, int count)
{
    writer.addJson(Run, QByteArrayLiteral("{}"));
    for (int i = first; i < first + count; ++i) {
        if (i == first) {
            writer.addWholeSet(factsOf(i), imageOf(layout, i));
        } else {
            writer.addChangedSet(factsOf(i), changesOf(layout, i));
        }
    }
}

QByteArray bytesOf(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

RecordingReader readerOf(const QByteArray &bytes)
{
    auto buffer = std::make_unique<QBuffer>();
    buffer->setData(bytes);
    buffer->open(QIODevice::ReadOnly);
    return {std::move(buffer), QStringLiteral("bytes")};
}

/// A recording on a disk that gives nothing from @p end on.
class FailingDisk : public QBuffer
{
public:
    FailingDisk(const QByteArray &bytes, qint64 end) : m_end(end)
    {
        setData(bytes);
        // What is read ahead would fail ahead.
        open(QIODevice::ReadOnly | QIODevice::Unbuffered);
    }

protected:
    qint64 readData(char *data, qint64 most) override
    {
        const qint64 left = m_end - pos();
        return left <= 0 ? -1 : QBuffer::readData(data, std::min(most, left));
    }

private:
    qint64 m_end;
};

/// The numbers of the sets that can be read; -1 behind them where there is no head, -2 where a set is none that
/// was written.
QVector<int> numbersIn(const QByteArray &bytes)
{
    QVector<int> numbers;
    try {
        RecordingReader reader = readerOf(bytes);
        RecordedSet set;
        while (reader.next(set)) {
            const auto number = static_cast<int>(set.facts.generation);
            numbers.append(set.image == imageOf(reader.layout(), number) ? number : -2);
        }
    } catch (const Failure & /*failure*/) {
        numbers.append(-1);
    }
    return numbers;
}

QByteArray record(quint32 kind, const QByteArray &content)
{
    QByteArray head(recordHeadSize, '\0');
    qToLittleEndian(quint32(content.size()), head.data());
    qToLittleEndian(kind, head.data() + 4);
    quint32 sum = crc32(head.constData(), 8);
    sum = crc32(content.constData(), std::size_t(content.size()), sum);
    qToLittleEndian(sum, head.data() + 8);
    return head + content;
}

} // namespace

/// The file of a recording, and the ring before it.
class tst_Recording : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void checksumIsThatOfZip();
    void writtenSetsReadBack();
    void cutAtEveryByteReadsUpToItsLastWholeSet();
    void noChangedByteGoesUnseen();
    void failingDiskIsNoEndOfTheRecording();
    void impossibleRecordsEndTheReading_data();
    void impossibleRecordsEndTheReading();
    void unknownKindsAreSkipped();
    void triggerStaysInItsRun();
    void missingDescriptorsAreNoMissingPermission();
    void cutOffRecordingIsContinuedBehindItsLastWholeSet();
    void otherValuesAreNotContinued();
    void ringKeepsTheLastWhile();
    void ringKeepsItsBytes();

private:
    QByteArray written(int sets);
    QString path() const { return m_dir->filePath(QStringLiteral("plant.rec")); }

    std::unique_ptr<QTemporaryDir> m_dir;
};

void tst_Recording::init()
{
    m_dir = std::make_unique<QTemporaryDir>();
}

QByteArray tst_Recording::written(int sets)
{
    const RecordingHead head = headOf(3);
    RecordingWriter writer(path(), RecordingWriter::Existing::Refused, head);
    writer.begin();
    addSets(writer, ImageLayout(head.values), 1, sets);
    return bytesOf(path());
}

void tst_Recording::checksumIsThatOfZip()
{
    const QByteArray digits("123456789");

    QCOMPARE(crc32(digits.constData(), 9), 0xCBF43926U);
    QCOMPARE(crc32(digits.constData() + 4, 5, crc32(digits.constData(), 4)), 0xCBF43926U);
    QCOMPARE(crc32(nullptr, 0), 0U);
}

void tst_Recording::writtenSetsReadBack()
{
    RecordingReader reader = readerOf(written(3));
    RecordedSet set;

    QCOMPARE(reader.head().key, QStringLiteral("plant"));
    QCOMPARE(reader.head().values, headOf(3).values);
    QCOMPARE(reader.head().description, QByteArrayLiteral("{}"));
    QVERIFY(reader.next(set));
    QVERIFY(set.beginsRun);
    QVERIFY(reader.next(set));
    QVERIFY(!set.beginsRun);
    QCOMPARE(set.facts.elapsed, quint64(2000));
    QCOMPARE(set.changed, (std::vector<int>{0, 1, 2}));
    QVERIFY(reader.next(set));
    QVERIFY(!reader.next(set));
    QCOMPARE(reader.problem(), QString());
}

void tst_Recording::cutAtEveryByteReadsUpToItsLastWholeSet()
{
    constexpr int sets = 4;
    QVector<int> sizes;
    for (int count = 0; count <= sets; ++count) {
        sizes.append(written(count).size());
        QFile::remove(path());
    }
    const QByteArray whole = written(sets);

    for (int size = 0; size < whole.size(); ++size) {
        int expected = 0;
        while (expected < sets && sizes[expected + 1] <= size) {
            ++expected;
        }
        const QVector<int> numbers = numbersIn(whole.left(size));
        // Of the run there is nothing yet.
        if (size < sizes[0] - recordHeadSize - 2) {
            QCOMPARE(numbers, QVector<int>{-1});
        } else {
            QCOMPARE(numbers.size(), expected);
            QVERIFY(expected == 0 || numbers.last() == expected);
        }
    }
}

void tst_Recording::noChangedByteGoesUnseen()
{
    const QByteArray whole = written(4);

    for (int place = 0; place < whole.size(); ++place) {
        QByteArray changed = whole;
        changed[place] = static_cast<char>(changed[place] ^ 0x10);
        const QVector<int> numbers = numbersIn(changed);
        // The four bytes behind the number of the format are kept for later.
        const bool isFree = place >= 12 && place < fileHeadSize;
        QCOMPARE(numbers == (QVector<int>{1, 2, 3, 4}), isFree);
        QVERIFY(!numbers.contains(-2));
    }
}

void tst_Recording::failingDiskIsNoEndOfTheRecording()
{
    const QByteArray bytes = written(3);
    RecordingReader untouched = readerOf(bytes);
    const qint64 begin = untouched.position();

    for (qint64 end = begin; end < bytes.size(); ++end) {
        RecordingReader reader(std::make_unique<FailingDisk>(bytes, end), QStringLiteral("bytes"));
        RecordedSet set;
        while (reader.next(set)) { }

        QVERIFY2(reader.isDamaged() && !reader.isCutOff(), qPrintable(QString::number(end)));
        QVERIFY(reader.position() <= end);
    }
}

void tst_Recording::impossibleRecordsEndTheReading_data()
{
    QTest::addColumn<QByteArray>("more");
    const QByteArray facts(setHeadSize, '\0');
    const auto changed = [&facts](const char *changes, int size) {
        return record(ChangedSet, facts + QByteArray(changes, size));
    };
    QByteArray tooLong = record(Trigger, "{}");
    qToLittleEndian(longestRecord + 1, tooLong.data());

    QTest::newRow("length beyond the longest") << tooLong;
    QTest::newRow("set without facts") << record(ChangedSet, QByteArray(setHeadSize - 1, '\0'));
    QTest::newRow("whole set that is too short") << record(WholeSet, facts + QByteArray(19, 'a'));
    QTest::newRow("whole set that is too long") << record(WholeSet, facts + QByteArray(21, 'a'));
    QTest::newRow("value behind the last") << changed("\x06"
                                                      "aaaa",
                                                      5);
    QTest::newRow("fourth of three") << changed("\x04"
                                                "aaaa\x00"
                                                "aaaa",
                                                10);
    QTest::newRow("value that is cut") << changed("\x00"
                                                  "aaa",
                                                  4);
    QTest::newRow("state that is cut") << changed("\x01"
                                                  "aaaaaaa",
                                                  8);
    QTest::newRow("state where there is none") << changed("\x03"
                                                          "aaaaaaaa",
                                                          9);
    QTest::newRow("number without an end")
        << changed("\xff\xff\xff\xff\xff\xff\xff\xff\xff\xff", 10);
    QTest::newRow("enormous number") << changed("\xff\xff\xff\xff\xff\xff\xff\xff\x7f"
                                                "aaaa",
                                                13);
    QTest::newRow("changes at the beginning of a run") << record(Run, "{}")
                                                              + changed("\x00"
                                                                        "aaaa",
                                                                        5);
}

void tst_Recording::impossibleRecordsEndTheReading()
{
    QFETCH(QByteArray, more);
    const QByteArray whole = written(2);
    RecordingReader reader = readerOf(whole + more + record(WholeSet, QByteArray(52, '\0')));
    RecordedSet set;

    QVERIFY(reader.next(set) && reader.next(set));
    QVERIFY(!reader.next(set));

    QVERIFY(reader.isDamaged());
    QVERIFY(!reader.next(set));
}

void tst_Recording::unknownKindsAreSkipped()
{
    const QByteArray whole = written(2);
    const ImageLayout layout(headOf(3).values);
    QByteArray facts(setHeadSize, '\0');
    facts[0] = 3;

    QCOMPARE(numbersIn(whole + record(4711, "anything")
                       + record(ChangedSet, facts + changesOf(layout, 3))),
             (QVector<int>{1, 2, 3}));
}

void tst_Recording::triggerStaysInItsRun()
{
    const auto trigger = [](const char *on) {
        return record(Trigger, QByteArray("{\"on\":\"") + on + "\",\"time\":\"noon\"}");
    };
    const ImageLayout layout(headOf(3).values);
    const QByteArray whole = written(1);
    const QByteArray set = whole.right(recordHeadSize + setHeadSize + int(layout.size()));
    RecordingReader reader = readerOf(whole + trigger("late") + record(Run, "{}") + trigger("first")
                                      + set + trigger("last"));
    RecordedSet read;

    QVERIFY(reader.next(read));
    QVERIFY(reader.next(read));
    QCOMPARE(read.triggers, QStringList{QStringLiteral("first")});
    QCOMPARE(read.lateTriggers.size(), 1);
    QCOMPARE(read.lateTriggers[0].on, QStringLiteral("late"));
    QCOMPARE(read.lateTriggers[0].time, QStringLiteral("noon"));
    QVERIFY(!reader.next(read));
    QCOMPARE(read.triggers, QStringList());
    QCOMPARE(read.lateTriggers.size(), 1);
    QCOMPARE(read.lateTriggers[0].on, QStringLiteral("last"));
}

void tst_Recording::missingDescriptorsAreNoMissingPermission()
{
    written(1);
    rlimit usual = {};
    QCOMPARE(getrlimit(RLIMIT_NOFILE, &usual), 0);
    const int next = dup(STDERR_FILENO);
    QVERIFY(next >= 0);
    ::close(next);
    const rlimit none = {static_cast<rlim_t>(next), usual.rlim_max};
    QCOMPARE(setrlimit(RLIMIT_NOFILE, &none), 0);
    QString message;
    ExitCode code = ExitCode::Done;
    try {
        const RecordingReader reader(path());
    } catch (const Failure &failure) {
        message = failure.reason;
        code = failure.code;
    }
    QCOMPARE(setrlimit(RLIMIT_NOFILE, &usual), 0);

    QCOMPARE(message, QStringLiteral("%1: cannot be opened: Too many open files; allow more of "
                                     "them with 'ulimit -n'")
                          .arg(path()));
    QCOMPARE(code, ExitCode::NoAccess);
}

void tst_Recording::cutOffRecordingIsContinuedBehindItsLastWholeSet()
{
    written(3);
    QFile file(path());
    QVERIFY(file.resize(file.size() - 1));

    const RecordingHead head = headOf(3);
    {
        RecordingWriter writer(path(), RecordingWriter::Existing::Continued, head);
        writer.begin();
        addSets(writer, ImageLayout(head.values), 7, 2);
    }

    QCOMPARE(numbersIn(bytesOf(path())), (QVector<int>{1, 2, 7, 8}));
}

void tst_Recording::otherValuesAreNotContinued()
{
    const QByteArray before = written(3);
    const RecordingHead head = headOf(2);
    int code = 0;
    try {
        const RecordingWriter writer(path(), RecordingWriter::Existing::Continued, head);
    } catch (const Failure &failure) {
        code = static_cast<int>(failure.code);
    }

    QCOMPARE(code, 8);
    QCOMPARE(bytesOf(path()), before);
}

void tst_Recording::ringKeepsTheLastWhile()
{
    const RecordingHead head = headOf(3);
    const ImageLayout layout(head.values);
    SetRing ring(layout, std::chrono::milliseconds(3), 1000000);
    for (int i = 1; i <= 9; ++i) {
        ring.add(factsOf(i), changesOf(layout, i), imageOf(layout, i));
    }
    {
        RecordingWriter writer(path(), RecordingWriter::Existing::Refused, head);
        writer.begin();
        writer.addJson(Run, QByteArrayLiteral("{}"));
        ring.moveTo(writer);
    }

    QCOMPARE(numbersIn(bytesOf(path())), (QVector<int>{6, 7, 8, 9}));
    QVERIFY(!ring.wasFull());
    QVERIFY(ring.isEmpty());
}

void tst_Recording::ringKeepsItsBytes()
{
    const RecordingHead head = headOf(3);
    const ImageLayout layout(head.values);
    SetRing ring(layout, std::chrono::hours(1), 300);
    for (int i = 1; i <= 100; ++i) {
        ring.add(factsOf(i), changesOf(layout, i), imageOf(layout, i));
    }
    {
        RecordingWriter writer(path(), RecordingWriter::Existing::Refused, head);
        writer.begin();
        writer.addJson(Run, QByteArrayLiteral("{}"));
        ring.moveTo(writer);
    }

    const QVector<int> numbers = numbersIn(bytesOf(path()));
    QVERIFY(ring.wasFull());
    QVERIFY(numbers.size() >= 2 && numbers.size() <= 5);
    QCOMPARE(numbers.last(), 100);
    QCOMPARE(numbers.first(), 101 - numbers.size());
}

QTEST_GUILESS_MAIN(tst_Recording)
#include "tst_Recording.moc"
