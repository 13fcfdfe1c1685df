#include <QProcess>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QtTest>

#include <csignal>

/// What script/bench-record runs, in small.
class tst_RecordRate : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void figuresAreToldAndNothingIsLeft();
    void setsOfWhichSomeLeavesChangeAreWhole();
    void aSetThatIsNotWholeIsFound();
    void aSetThatNobodyCountedIsFound();
    void aSignalEndsItEarlyAndNothingIsLeft();
    void wrongWordsAreRefused_data();
    void wrongWordsAreRefused();

private:
    void start(QProcess &process, const QStringList &words);
    bool finish(QProcess &process);
    QStringList left(qint64 pid) const;

    QTemporaryDir m_folder;
};

namespace {

constexpr int longest = 120000;

QStringList small(const QStringList &more = {})
{
    return QStringList{"--leaves", "50", "--rate", "200", "--seconds", "0.5"} + more;
}

/// For as long that the set with the fault comes, which is one of the first, also where most are left out as late.
QStringList planted(const QString &plant, const QStringList &more = {})
{
    return QStringList{"--leaves", "50", "--rate", "200", "--seconds", "3", "--plant", plant}
           + more;
}

} // namespace

void tst_RecordRate::start(QProcess &process, const QStringList &words)
{
    auto environment = QProcessEnvironment::systemEnvironment();
    environment.insert("TMPDIR", m_folder.path());
    process.setProcessEnvironment(environment);
    process.start(RECORDRATE, words);
}

bool tst_RecordRate::finish(QProcess &process)
{
    return process.waitForFinished(longest) && process.exitStatus() == QProcess::NormalExit;
}

QStringList tst_RecordRate::left(qint64 pid) const
{
    return QDir(m_folder.path()).entryList(QDir::AllEntries | QDir::NoDotAndDotDot)
           + QDir("/dev/shm")
                 .entryList({QStringLiteral("*tesselRecordRate%1*").arg(pid)},
                            QDir::AllEntries | QDir::System);
}

void tst_RecordRate::figuresAreToldAndNothingIsLeft()
{
    QProcess process;
    start(process, small());
    const qint64 pid = process.processId();
    QVERIFY(finish(process));

    const QString said = process.readAllStandardOutput();
    QVERIFY2(process.exitCode() == 0, process.readAllStandardError());
    static const QRegularExpression figures(
        R"(^publisher alone: (\d+) sets in [\d.]+ s, [\d.]+ a second, (\d+) left out as late; processor [\d.]+ %, \d+ us a set
publisher with recorder: (\d+) sets in [\d.]+ s, [\d.]+ a second, (\d+) left out as late; processor [\d.]+ %, \d+ us a set
recorder: processor [\d.]+ %, \d+ us a set
recording: (\d+) of (\d+) sets, (\d+) dropped \([\d.]+ %\), 0 not whole; \d+ bytes, \d+ a set
$)");
    const auto match = figures.match(said);
    QVERIFY2(match.hasMatch(), qPrintable(said));
    const auto number = [&match](int index) { return match.captured(index).toInt(); };
    QCOMPARE(number(1) + number(2), 100);
    QCOMPARE(number(3) + number(4), 100);
    QCOMPARE(number(6), number(3) + 1);
    QCOMPARE(number(5) + number(7), number(6));
    QCOMPARE(left(pid), QStringList());
}

void tst_RecordRate::setsOfWhichSomeLeavesChangeAreWhole()
{
    QProcess process;
    start(process, small({"--changing", "7"}));
    QVERIFY(finish(process));
    QVERIFY2(process.exitCode() == 0, process.readAllStandardError());
}

/// With one leaf a set the wrong one stays in what is recorded for many sets.
void tst_RecordRate::aSetThatIsNotWholeIsFound()
{
    QProcess process;
    start(process, planted("torn-set", {"--changing", "1"}));
    QVERIFY(finish(process));

    QCOMPARE(process.exitCode(), 1);
    static const QRegularExpression found(
        "^script/bench-record: [1-9][0-9]* sets are not as they were published\n");
    const QString error = process.readAllStandardError();
    QVERIFY2(found.match(error.mid(error.indexOf("script/"))).hasMatch(), qPrintable(error));
}

void tst_RecordRate::aSetThatNobodyCountedIsFound()
{
    QProcess process;
    start(process, planted("uncounted-set"));
    QVERIFY(finish(process));

    QCOMPARE(process.exitCode(), 1);
    static const QRegularExpression found(
        R"(script/bench-record: (\d+) sets were published, but (\d+) recorded or dropped\n)");
    const QString error = process.readAllStandardError();
    const auto match = found.match(error);
    QVERIFY2(match.hasMatch(), qPrintable(error));
    QCOMPARE(match.captured(2).toInt(), match.captured(1).toInt() + 1);
}

void tst_RecordRate::aSignalEndsItEarlyAndNothingIsLeft()
{
    QProcess process;
    start(process, {"--leaves", "50", "--rate", "200", "--seconds", "3600"});
    const qint64 pid = process.processId();
    QTRY_VERIFY_WITH_TIMEOUT(!left(pid).filter("tesselRecordRate").isEmpty(), longest);
    QCOMPARE(kill(static_cast<pid_t>(pid), SIGINT), 0);
    QVERIFY(finish(process));

    QCOMPARE(process.exitCode(), 128 + SIGINT);
    QCOMPARE(left(pid), QStringList());
}

void tst_RecordRate::wrongWordsAreRefused_data()
{
    QTest::addColumn<QStringList>("words");
    QTest::addColumn<QByteArray>("text");

    const auto refused = [](const char *name, const QStringList &words, const char *text) {
        QTest::newRow(name) << words
                            << QByteArray("script/bench-record: ") + text
                                   + "; see script/bench-record --help\n";
    };
    refused("unknown", {"--fast", "1"}, "cannot take '--fast 1'");
    refused("no number", {"--leaves", "many"}, "cannot take '--leaves many'");
    refused("half a leaf", {"--leaves", "1.5"}, "cannot take '--leaves 1.5'");
    refused("nothing", {"--rate", "0"}, "cannot take '--rate 0'");
    refused("too many", {"--leaves", "100001"}, "cannot take '--leaves 100001'");
    refused("no word", {"--seconds"}, "cannot take '--seconds'");
    refused("more than all", {"--leaves", "5", "--changing", "6"}, "--changing is above --leaves");
    refused("no fault", {"--plant", "none"}, "cannot take '--plant none'");
}

void tst_RecordRate::wrongWordsAreRefused()
{
    QFETCH(QStringList, words);
    QFETCH(QByteArray, text);

    QProcess process;
    start(process, words);
    QVERIFY(finish(process));

    QCOMPARE(process.exitCode(), 2);
    QCOMPARE(process.readAllStandardError(), text);
    QCOMPARE(process.readAllStandardOutput(), QByteArray());
}

QTEST_GUILESS_MAIN(tst_RecordRate)
#include "tst_RecordRate.moc"
