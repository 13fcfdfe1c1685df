#include "Configuration/ConfigurationAndProcessDataParser.h"
#include "support/WorkingDirectory.h"

#include <QProcess>
#include <QtTest>

namespace {

const char configuration[] = R"({
    "type": "treenode",
    "modifiedBy": "",
    "lastModified": "",
    "value": {
        "level": {"type": "int32", "value": 0, "notes": [1, {"x": 0}]},
        "empty": {"type": "double", "value": null},
        "table": {"type": "array", "value": [["0", 0]], "arrayInformation": [[{}], [{}, {}]]}
    }
})";

} // namespace

class tst_EndOfProcess : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void globalObjectUsesTheLibraryInItsDestructor_data();
    void globalObjectUsesTheLibraryInItsDestructor();
};

void tst_EndOfProcess::globalObjectUsesTheLibraryInItsDestructor_data()
{
    QTest::addColumn<QString>("program");

    QTest::newRow("older than the first call") << GLOBAL_OBJECT;
    QTest::newRow("older than the library in the process") << GLOBAL_OBJECT "-host";
}

void tst_EndOfProcess::globalObjectUsesTheLibraryInItsDestructor()
{
    QFETCH(QString, program);
    const WorkingDirectory directory;
    writeFile("x.config.json", configuration);
    QProcess process;
    process.setProcessChannelMode(QProcess::MergedChannels);

    process.start(program, {"x.config.json"});
    QVERIFY(process.waitForFinished(60000));

    QCOMPARE(process.readAll(), QByteArray());
    QCOMPARE(process.exitStatus(), QProcess::NormalExit);
    QCOMPARE(process.exitCode(), 0);
    const auto root = ConfigurationAndProcessDataParser().parseFromFile("x.config.json");
    QVERIFY(!root.isNull());
    QCOMPARE(root->getProperty("modifiedBy"), QVariant("Device(Device)"));
    QCOMPARE(root->getLeaf(QString("level"))->getProperty("value"), QVariant(2));
    QCOMPARE(root->getLeaf(QString("level"))->getProperty("notes[1]/x"), QVariant(2.0));
    QCOMPARE(root->getLeaf(QString("table"))->getProperty("value[0,1]"), QVariant(2.0));
}

QTEST_GUILESS_MAIN(tst_EndOfProcess)
#include "tst_EndOfProcess.moc"
