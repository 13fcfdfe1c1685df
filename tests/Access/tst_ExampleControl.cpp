#include "ProcessData/Linux/ProcessDataValue.h"
#include "ProcessDataManagement/ProcessDataManager.h"

#include <QProcess>
#include <QTemporaryDir>
#include <QtTest>

using namespace ProcessDataDefinitions;

Q_DECLARE_METATYPE(ErrorTypes)

/// That the controller of the example reads, decides and publishes.
class tst_ExampleControl : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void fullTankIsLetDown();
    void otherTankIsLeftAlone_data();
    void otherTankIsLeftAlone();
    void everySetIsLookedAt();
    void regionHasToBeThere();

private:
    void publish(const ProcessValue &level);
    QByteArray runControl(int expectedExitCode) const;

    QTemporaryDir m_directory;
    QString m_file;
    ProcessDataManager m_manager;
    ProcessDataValueSharedPointer m_level;
    ProcessDataValueSharedPointer m_temperature;
};

void tst_ExampleControl::initTestCase()
{
    QFile description(QStringLiteral(TANK_DESCRIPTION));
    QVERIFY(description.open(QIODevice::ReadOnly));
    QByteArray text = description.readAll();
    QCOMPARE(text.count("\"tesselTank\""), 1);
    const QByteArray key = "tesselControl" + QByteArray::number(QCoreApplication::applicationPid());
    m_file = m_directory.filePath(QStringLiteral("tank.process.json"));
    QFile own(m_file);
    QVERIFY(own.open(QIODevice::WriteOnly));
    own.write(text.replace("tesselTank", key));
}

void tst_ExampleControl::publish(const ProcessValue &level)
{
    if (!m_level) {
        const auto tree = m_manager.createProcessDataFromFile(
            m_file, ProcessDataManager::InitTypeSharedMemoryCreate);
        QVERIFY(tree);
        m_level = tree->getLeafProcessDataValue(QStringLiteral("tank/level"));
        m_temperature = tree->getLeafProcessDataValue(QStringLiteral("tank/temperature"));
    }
    QVERIFY(m_manager.lockWriteBuffer());
    QVERIFY(m_level->setValueNoLock(level));
    QVERIFY(m_temperature->setValueNoLock(ProcessValue(20.0F, PROCESS_VALUE_ERROR_TYPE_VALID)));
    QVERIFY(m_manager.unlockWriteBuffer());
    QVERIFY(m_manager.swapReadAndWriteBuffer());
}

QByteArray tst_ExampleControl::runControl(int expectedExitCode) const
{
    QProcess control;
    control.start(QStringLiteral(EXAMPLE_CONTROL), {m_file});
    return control.waitForFinished(60000) && control.exitCode() == expectedExitCode
               ? control.readAllStandardOutput()
               : QByteArrayLiteral("another exit code");
}

void tst_ExampleControl::regionHasToBeThere()
{
    const QString file = m_file;
    m_file = m_directory.filePath(QStringLiteral("no.process.json"));

    QCOMPARE(runControl(1), QByteArray());

    m_file = file;
}

void tst_ExampleControl::fullTankIsLetDown()
{
    publish({1.25, PROCESS_VALUE_ERROR_TYPE_VALID});

    QCOMPARE(runControl(0), QByteArrayLiteral("level 0.625 PROCESS_VALUE_ERROR_TYPE_VALID\n"
                                              "temperature PROCESS_VALUE_ERROR_TYPE_TIMEOUT\n"));
}

void tst_ExampleControl::otherTankIsLeftAlone_data()
{
    QTest::addColumn<double>("level");
    QTest::addColumn<ErrorTypes>("state");
    QTest::addColumn<QByteArray>("shown");
    QTest::newRow("low") << 0.75 << PROCESS_VALUE_ERROR_TYPE_VALID
                         << QByteArray("level 0.75 PROCESS_VALUE_ERROR_TYPE_VALID\n");
    QTest::newRow("unknown") << 1.25 << PROCESS_VALUE_ERROR_TYPE_SENSOR_BREAKAGE
                             << QByteArray("level 0 PROCESS_VALUE_ERROR_TYPE_SENSOR_BREAKAGE\n");
}

void tst_ExampleControl::otherTankIsLeftAlone()
{
    QFETCH(double, level);
    QFETCH(ErrorTypes, state);
    QFETCH(QByteArray, shown);
    publish(ProcessValue(level, state));

    QCOMPARE(runControl(0), shown + "temperature PROCESS_VALUE_ERROR_TYPE_VALID\n");
}

/// Without looking from time to time: it is asleep until somebody publishes, itself included.
void tst_ExampleControl::everySetIsLookedAt()
{
    publish({0.5, PROCESS_VALUE_ERROR_TYPE_VALID});
    QProcess control;
    control.start(QStringLiteral(EXAMPLE_CONTROL), {m_file, QStringLiteral("3")});
    const auto output = [&control](int lines) {
        QByteArray text;
        while (lines > 0 && (control.canReadLine() || control.waitForReadyRead(60000))) {
            for (; lines > 0 && control.canReadLine(); --lines) {
                text += control.readLine();
            }
        }
        return text;
    };
    QCOMPARE(output(2), QByteArrayLiteral("level 0.5 PROCESS_VALUE_ERROR_TYPE_VALID\n"
                                          "temperature PROCESS_VALUE_ERROR_TYPE_VALID\n"));

    publish({3.0, PROCESS_VALUE_ERROR_TYPE_VALID});

    const QByteArray letDown = QByteArrayLiteral("temperature PROCESS_VALUE_ERROR_TYPE_TIMEOUT\n");
    QCOMPARE(output(4), "level 1.5 PROCESS_VALUE_ERROR_TYPE_VALID\n" + letDown
                            + "level 0.75 PROCESS_VALUE_ERROR_TYPE_VALID\n" + letDown);
    QVERIFY(control.state() == QProcess::NotRunning || control.waitForFinished(60000));
    QCOMPARE(control.exitCode(), 0);
}

QTEST_GUILESS_MAIN(tst_ExampleControl)

#include "tst_ExampleControl.moc"
