#include "Companion/SystemVSemaphoreBaseClass.h"
#include "HeldRegion.h"
#include "ToolProcess.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QtTest>

using Metadata = ToolDescription::Metadata;

namespace {

QString semaphoreKey(const ToolDescription &description)
{
    const auto key = static_cast<quint32>(
        SystemVSemaphoreBaseClass::systemVKey(description.key() + QStringLiteral("Semaphore")));
    return QStringLiteral("0x%1").arg(key, 8, 16, QLatin1Char('0'));
}

void addLeaves(ToolDescription &description)
{
    description.add(
        QStringLiteral("n/a"), QStringLiteral("int16"), Metadata::ErrorState, 2,
        {{QStringLiteral("unit"), QStringLiteral("V")}, {QStringLiteral("readOnly"), true}});
    description.add(QStringLiteral("n/b"), QStringLiteral("bit"), Metadata::None, 1,
                    {{QStringLiteral("bitmask"), 4}});
}

} // namespace

/// What `tessel info` says of a description and of its region.
class tst_ToolInfo : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void textTellsMemoryAndLeaves();
    void textTellsWhetherTheRegionExists();
    void jsonTellsTheSame();
    void urlsAreALineEach();
    void urlsGoNotWithJson();
    void descriptionWithoutMemoryIsShown();
    void faultySlotsAreShownAndReported_data();
    void faultySlotsAreShownAndReported();
    void manyPairsThatShareAByteAreCutShort();
    void bitsOfOneByteAreNoFault();
};

void tst_ToolInfo::textTellsMemoryAndLeaves()
{
    ToolDescription description;
    addLeaves(description);
    const QString file = description.write();

    const ToolResult result = runTool({QStringLiteral("info"), file});

    QCOMPARE(result.exitCode, 0);
    QCOMPARE(result.error, QString());
    QCOMPARE(result.output,
             QStringLiteral("File        %1\n"
                            "Key         %2\n"
                            "Buffer      double, 7 bytes\n"
                            "Region      %2SharedMemory, 526 bytes; does not exist now\n"
                            "Semaphores  %3\n"
                            "Leaves      2\n"
                            "\n"
                            "URL  TYPE      OFFSET  SIZE  METADATA  ACCESS      UNIT\n"
                            "n/a  int16          0     2      at 2  read-only   V\n"
                            "n/b  bit 0x04       6     1         -  read-write\n")
                 .arg(file, description.key(), semaphoreKey(description)));
}

void tst_ToolInfo::textTellsWhetherTheRegionExists()
{
    ToolDescription description;
    addLeaves(description);
    const QString file = description.write();
    const HeldRegion region(file);

    QVERIFY(runTool({QStringLiteral("info"), file})
                .output.contains(QStringLiteral("SharedMemory, 526 bytes; exists\n")));

    description.setRoot(QStringLiteral("sizeOfSharedMemory"), 8);
    QVERIFY(runTool({QStringLiteral("info"), description.write()})
                .output.contains(QStringLiteral("SharedMemory, 528 bytes; exists with 526 bytes: "
                                                "made from another description\n")));
}

void tst_ToolInfo::jsonTellsTheSame()
{
    ToolDescription description;
    addLeaves(description);
    const QString file = description.write();

    const ToolResult result = runTool({QStringLiteral("info"), QStringLiteral("--json"), file});

    QCOMPARE(result.exitCode, 0);
    QCOMPARE(result.error, QString());
    QJsonParseError error;
    const QJsonObject info = QJsonDocument::fromJson(result.output.toUtf8(), &error).object();
    QCOMPARE(error.error, QJsonParseError::NoError);
    const QJsonArray leaves{QJsonObject{{QStringLiteral("url"), QStringLiteral("n/a")},
                                        {QStringLiteral("type"), QStringLiteral("int16")},
                                        {QStringLiteral("offset"), 0},
                                        {QStringLiteral("size"), 2},
                                        {QStringLiteral("relativeOffsetMetadata"), 2},
                                        {QStringLiteral("sizeMetadata"), 4},
                                        {QStringLiteral("bitmask"), 0},
                                        {QStringLiteral("readOnly"), true},
                                        {QStringLiteral("unit"), QStringLiteral("V")}},
                            QJsonObject{{QStringLiteral("url"), QStringLiteral("n/b")},
                                        {QStringLiteral("type"), QStringLiteral("bit")},
                                        {QStringLiteral("offset"), 6},
                                        {QStringLiteral("size"), 1},
                                        {QStringLiteral("relativeOffsetMetadata"), 0},
                                        {QStringLiteral("sizeMetadata"), 0},
                                        {QStringLiteral("bitmask"), 4},
                                        {QStringLiteral("readOnly"), false},
                                        {QStringLiteral("unit"), QString()}}};
    const QJsonObject expected{
        {QStringLiteral("file"), file},
        {QStringLiteral("key"), description.key()},
        {QStringLiteral("bufferSize"), 7},
        {QStringLiteral("doubleBuffer"), true},
        {QStringLiteral("regionSize"), 526},
        {QStringLiteral("regionExists"), false},
        {QStringLiteral("segment"), description.key() + QStringLiteral("SharedMemory")},
        {QStringLiteral("semaphoreKey"), semaphoreKey(description)},
        {QStringLiteral("mirror"), QJsonValue()},
        {QStringLiteral("leaves"), leaves}};
    QCOMPARE(info, expected);
}

void tst_ToolInfo::urlsAreALineEach()
{
    ToolDescription description;
    addLeaves(description);

    const ToolResult result = runTool(
        {QStringLiteral("info"), QStringLiteral("--urls"), description.write()});

    QCOMPARE(result.output, QStringLiteral("n/a\nn/b\n"));
    QCOMPARE(result.error, QString());
    QCOMPARE(result.exitCode, 0);
}

void tst_ToolInfo::urlsGoNotWithJson()
{
    const ToolResult result = runTool({QStringLiteral("info"), QStringLiteral("--urls"),
                                       QStringLiteral("--json"),
                                       QStringLiteral("/no/such.process.json")});

    QCOMPARE(result.output, QString());
    QCOMPARE(result.error, QStringLiteral("tessel: info: give --json or --urls, not both; see "
                                          "'tessel info --help'\n"));
    QCOMPARE(result.exitCode, 2);
}

void tst_ToolInfo::descriptionWithoutMemoryIsShown()
{
    ToolDescription description;
    addLeaves(description);
    description.setRoot(QStringLiteral("sizeOfSharedMemory"), 0);

    const ToolResult result = runTool({QStringLiteral("info"), description.write()});

    QCOMPARE(result.exitCode, 0);
    QCOMPARE(result.error, QString());
    QVERIFY(result.output.contains(QStringLiteral("\nMemory      none described\n")));
    QVERIFY(!result.output.contains(QStringLiteral("Region")));
}

void tst_ToolInfo::faultySlotsAreShownAndReported_data()
{
    QTest::addColumn<QString>("type");
    QTest::addColumn<QJsonObject>("properties");
    QTest::addColumn<QString>("reason");
    QTest::newRow("size") << QStringLiteral("double")
                          << QJsonObject{{QStringLiteral("sizeValue"), 4}}
                          << QStringLiteral(
                                 "'c': Wrong size of data type in Json: 4 != 8 \"double\"");
    QTest::newRow("type") << QStringLiteral("real") << QJsonObject()
                          << QStringLiteral("'c': Data type not OK \"real\"");
    QTest::newRow("outside") << QStringLiteral("double")
                             << QJsonObject{{QStringLiteral("offsetSharedMemory"), 9}}
                             << QStringLiteral("'c': its slot ends at byte 17 of a buffer of 15");
    QTest::newRow("overlap") << QStringLiteral("double")
                             << QJsonObject{{QStringLiteral("offsetSharedMemory"), 5}}
                             << QStringLiteral("n/a and c share byte 5; c and n/b share byte 6");
}

void tst_ToolInfo::faultySlotsAreShownAndReported()
{
    QFETCH(QString, type);
    QFETCH(QJsonObject, properties);
    QFETCH(QString, reason);
    ToolDescription description;
    addLeaves(description);
    description.add(QStringLiteral("c"), type, Metadata::None, 8, properties);
    const QString file = description.write();

    const ToolResult result = runTool({QStringLiteral("info"), file});

    QCOMPARE(result.exitCode, 9);
    QVERIFY(result.output.contains(QStringLiteral("\nLeaves      3\n")));
    QCOMPARE(result.error, QStringLiteral("tessel: %1: %2\n").arg(file, reason));
}

/// Each with each other: of 20,000 leaves on one byte nobody would read all pairs, nor find room for them.
void tst_ToolInfo::manyPairsThatShareAByteAreCutShort()
{
    ToolDescription description;
    for (int i = 0; i < 46; ++i) {
        description.add(QStringLiteral("n/a%1").arg(i), QStringLiteral("uint8"), Metadata::None, 1,
                        {{QStringLiteral("offsetSharedMemory"), 0}});
    }
    const QString file = description.write();

    const ToolResult result = runTool({QStringLiteral("info"), file});

    QCOMPARE(result.exitCode, 9);
    QCOMPARE(result.error.count(QStringLiteral(" share byte 0; ")), 1000);
    QVERIFY(result.error.endsWith(
        QStringLiteral(" share byte 0; and more: only the first 1000 pairs are named\n")));
}

void tst_ToolInfo::bitsOfOneByteAreNoFault()
{
    ToolDescription description;
    description.addEveryForm();

    const ToolResult result = runTool({QStringLiteral("info"), description.write()});

    QCOMPARE(result.error, QString());
    QCOMPARE(result.exitCode, 0);
}

QTEST_GUILESS_MAIN(tst_ToolInfo)
#include "tst_ToolInfo.moc"
