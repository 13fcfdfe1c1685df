#include "PacedPublisher.h"

#include <QtTest>

/// The tool as a service may start it: without standard input, output or error.
class tst_ToolStandardDescriptors : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void closedOutputIsAFailure_data();
    void closedOutputIsAFailure();
    void noFileGetsTheNumberOfAClosedOne();
};

namespace {

constexpr int longestWait = 60000;

/// What a shell does with the tool and its arguments.
void start(QProcess &process, const QString &redirections, const QStringList &arguments)
{
    process.start(QStringLiteral("/bin/sh"),
                  QStringList{QStringLiteral("-c"),
                              QStringLiteral("exec \"$0\" \"$@\" ") + redirections,
                              QStringLiteral(TESSEL_TOOL)}
                      + arguments);
}

} // namespace

void tst_ToolStandardDescriptors::closedOutputIsAFailure_data()
{
    QTest::addColumn<QString>("redirections");
    QTest::addColumn<QStringList>("arguments");
    const QStringList get{QStringLiteral("get"), QStringLiteral("FILE")};
    const QStringList watch{QStringLiteral("watch"), QStringLiteral("--count=1"),
                            QStringLiteral("FILE")};
    QTest::newRow("version") << ">&-" << QStringList(QStringLiteral("--version"));
    QTest::newRow("values") << ">&-" << get;
    QTest::newRow("values, and no input") << "<&- >&-" << get;
    QTest::newRow("values again and again") << ">&-" << watch;
}

void tst_ToolStandardDescriptors::closedOutputIsAFailure()
{
    QFETCH(QString, redirections);
    QFETCH(QStringList, arguments);
    const DoctoredPlant plant;
    const PacedPublisher publisher(plant);
    QVERIFY(publisher.isReady());
    arguments.replaceInStrings(QStringLiteral("FILE"), plant.file);

    QProcess process;
    start(process, redirections, arguments);
    QVERIFY(process.waitForFinished(longestWait));

    QCOMPARE(process.readAllStandardError(),
             QByteArray("tessel: standard output: Bad file descriptor\n"));
    QCOMPARE(process.exitCode(), 9);
}

void tst_ToolStandardDescriptors::noFileGetsTheNumberOfAClosedOne()
{
    const DoctoredPlant plant;
    PacedPublisher publisher(plant);
    QVERIFY(publisher.isReady());
    QProcess process;
    start(process, QStringLiteral("<&- >&- 2>&-"),
          {QStringLiteral("expect"), QStringLiteral("--timeout=60s"), plant.file,
           plant.url + QStringLiteral(" == 1")});
    QVERIFY(publisher.waitUntilSomebodySleeps());

    for (int descriptor = 0; descriptor < 3; ++descriptor) {
        QCOMPARE(QFile::symLinkTarget(
                     QStringLiteral("/proc/%1/fd/%2").arg(process.processId()).arg(descriptor)),
                 QStringLiteral("/dev/null"));
    }

    QVERIFY(publisher.publish());
    QVERIFY(process.waitForFinished(longestWait));
    QCOMPARE(process.exitCode(), 0);
}

QTEST_GUILESS_MAIN(tst_ToolStandardDescriptors)
#include "tst_ToolStandardDescriptors.moc"
