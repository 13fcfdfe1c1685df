#include "Access/NumberRegion.h"

#include <QProcess>
#include <QTemporaryDir>
#include <QtTest>

using namespace ProcessDataDefinitions;

namespace {

struct Outcome
{
    int exitCode;
    QByteArray output;
};

Outcome runLogger(const QStringList &arguments)
{
    QProcess logger;
    logger.start(QStringLiteral(EXAMPLE_LOGGER), arguments);
    if (!logger.waitForFinished(60000)) {
        return {-1, {}};
    }
    return {logger.exitCode(), logger.readAllStandardOutput()};
}

/// Writes the description to a file that a second process can read.
QString writeDescription(const QTemporaryDir &directory, const ProcessDescription &description)
{
    QFile file(directory.filePath(QStringLiteral("tank.process.json")));
    if (!file.open(QIODevice::WriteOnly)) {
        return {};
    }
    file.write(description.toByteArray());
    return file.fileName();
}

} // namespace

class tst_ExampleLogger : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void publishedSetsAreWritten();
    void unknownUrlIsRefused();
    void regionHasToBeThere();

private:
    QTemporaryDir m_directory;
};

void tst_ExampleLogger::init()
{
    QVERIFY(m_directory.isValid());
}

void tst_ExampleLogger::publishedSetsAreWritten()
{
    ProcessDescription description(16, true);
    description.leaves.insert(QStringLiteral("level"), int32Slot(0));
    description.leaves.insert(QStringLiteral("flow"), int32Slot(8));
    LiveRegion region(description);
    region.leaf(QStringLiteral("level"))
        ->setValue(ProcessValue(QVariant(17), PROCESS_VALUE_ERROR_TYPE_VALID));
    region.leaf(QStringLiteral("flow"))
        ->setValue(ProcessValue(PROCESS_VALUE_ERROR_TYPE_SENSOR_BREAKAGE));
    QVERIFY(region.manager.swapReadAndWriteBuffer());

    const Outcome outcome = runLogger({writeDescription(m_directory, description),
                                       QStringLiteral("2"), QStringLiteral("flow"),
                                       QStringLiteral("level")});

    QCOMPARE(outcome.exitCode, 0);
    QCOMPARE(outcome.output, QByteArrayLiteral("flow,level\n"
                                               "PROCESS_VALUE_ERROR_TYPE_SENSOR_BREAKAGE,17\n"
                                               "PROCESS_VALUE_ERROR_TYPE_SENSOR_BREAKAGE,17\n"));
}

void tst_ExampleLogger::unknownUrlIsRefused()
{
    ProcessDescription description(8, true);
    description.leaves.insert(QStringLiteral("level"), int32Slot(0));
    const LiveRegion region(description);

    const Outcome outcome = runLogger({writeDescription(m_directory, description),
                                       QStringLiteral("1"), QStringLiteral("nowhere")});

    QCOMPARE(outcome.exitCode, 1);
    QCOMPARE(outcome.output, QByteArray());
}

void tst_ExampleLogger::regionHasToBeThere()
{
    ProcessDescription description(8, true);
    description.leaves.insert(QStringLiteral("level"), int32Slot(0));

    QCOMPARE(runLogger({writeDescription(m_directory, description), QStringLiteral("1"),
                        QStringLiteral("level")})
                 .exitCode,
             1);
    QCOMPARE(runLogger({}).exitCode, 2);
}

QTEST_GUILESS_MAIN(tst_ExampleLogger)

#include "tst_ExampleLogger.moc"
