#include "ComparedPair.h"

/// `tessel diff` of process descriptions.
class tst_ToolDiffProcess : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void verdictOfAProcessLeaf_data();
    void verdictOfAProcessLeaf();
    void verdictOfARegion_data();
    void verdictOfARegion();
    void leavesComeAndGo();
    void newLeafInFreeRoomIsToBeAttached();
    void hiddenLeafOfAUrlIsNeverCompatible();
    void whatIsReadAlikeIsNoChange_data();
    void whatIsReadAlikeIsNoChange();
    void stateOnItsOwnValueIsAFault_data();
    void stateOnItsOwnValueIsAFault();
};

void tst_ToolDiffProcess::verdictOfAProcessLeaf_data()
{
    QTest::addColumn<QByteArray>("former");
    QTest::addColumn<QByteArray>("now");
    QTest::addColumn<QString>("changes");
    const QByteArray number = R"("type": "int32", "sizeValue": 4)";
    const QByteArray text = R"("type": "string", "sizeValue": 16)";
    const QByteArray bit = R"("type": "bit", "sizeValue": 1, "bitmask": 1)";
    const QByteArray list = R"("type": "selector", "sizeValue": 4, "selectionList": ["a", "b"])";
    const auto add = [](const char *name, const QByteArray &former, const QByteArray &now,
                        const char *changes) {
        QTest::newRow(name) << former << now << QString::fromUtf8(changes);
    };
    add("type", number, R"("type": "uint32", "sizeValue": 4)",
        "breaking process n/a type [\"int32\"] [\"uint32\"]");
    add("new unit", number, number + R"(, "unit": "V")",
        "compatible process n/a unit [null] [\"V\"]");
    add("no unit", number + R"(, "unit": "V")", number, "breaking process n/a unit [\"V\"] [null]");
    add("words of the unit", number + R"(, "unitText": {"de": "x"})",
        number + R"(, "unitText": {"de": "y"})",
        "compatible process n/a unitText [{\"de\":\"x\"}] [{\"de\":\"y\"}]");
    add("label", number + R"(, "labelTextId": "x")", number + R"(, "labelTextId": "y")",
        "compatible process n/a labelTextId [\"x\"] [\"y\"]");
    add("limits", number + R"(, "minLimit": 1)", number + R"(, "minLimit": 2)",
        "compatible process n/a minLimit [1] [2]");
    add("read-only", number, number + R"(, "readOnly": true)",
        "breaking process n/a readOnly [null] [true]");
    add("no longer read-only", number + R"(, "readOnly": true)", number + R"(, "readOnly": false)",
        "compatible process n/a readOnly [true] [false]");
    add("more room", text, R"("type": "string", "sizeValue": 20)",
        "attach process n/a sizeValue [16] [20]");
    add("less room", text, R"("type": "string", "sizeValue": 14)",
        "breaking process n/a sizeValue [16] [14]");
    add("state comes", number + R"(, "relativeOffsetMetadata": 4, "sizeMetadata": 0)",
        number + R"(, "relativeOffsetMetadata": 4, "sizeMetadata": 4)",
        "attach process n/a sizeMetadata [0] [4]");
    add("state goes", number + R"(, "relativeOffsetMetadata": 4, "sizeMetadata": 4)",
        number + R"(, "relativeOffsetMetadata": 4, "sizeMetadata": 0)",
        "breaking process n/a sizeMetadata [4] [0]");
    add("state goes into the number",
        R"("type": "float", "sizeValue": 4, "relativeOffsetMetadata": 4, "sizeMetadata": 4)",
        R"("type": "float", "sizeValue": 4, "relativeOffsetMetadata": 4, "sizeMetadata": 0)",
        "attach process n/a sizeMetadata [4] [0]");
    add("state moves", number + R"(, "relativeOffsetMetadata": 4, "sizeMetadata": 4)",
        number + R"(, "relativeOffsetMetadata": 8, "sizeMetadata": 4)",
        "attach process n/a relativeOffsetMetadata [4] [8]");
    add("distance of no state", number + R"(, "relativeOffsetMetadata": 4)",
        number + R"(, "relativeOffsetMetadata": 8)",
        "attach process n/a relativeOffsetMetadata [4] [8]");
    add("another bit", bit, R"("type": "bit", "sizeValue": 1, "bitmask": 2)",
        "attach process n/a bitmask [1] [2]");
    add("mask of no bit", number + R"(, "bitmask": 1)", number + R"(, "bitmask": 2)",
        "attach process n/a bitmask [1] [2]");
    add("longer list", list,
        R"("type": "selector", "sizeValue": 4, "selectionList": ["a", "b", "c"])",
        "compatible process n/a selectionList [[\"a\",\"b\"]] [[\"a\",\"b\",\"c\"]]");
    add("other order", list, R"("type": "selector", "sizeValue": 4, "selectionList": ["b", "a"])",
        "breaking process n/a selectionList [[\"a\",\"b\"]] [[\"b\",\"a\"]]");
    add("shorter list", list, R"("type": "selector", "sizeValue": 4, "selectionList": ["a"])",
        "breaking process n/a selectionList [[\"a\",\"b\"]] [[\"a\"]]");
    add("same number, written differently", number + R"(, "viewEnd": 5)",
        number + R"(, "viewEnd": 5.0)", "");
    add("last digit of a double", number + R"(, "viewEnd": 0.1)",
        number + R"(, "viewEnd": 0.10000000000000002)",
        "compatible process n/a viewEnd [0.1] [0.10000000000000002]");
    add("outside the buffer", number, number + R"(, "offsetSharedMemory": 38)",
        "attach process n/a offsetSharedMemory [null] [38]|breaking process n/a fault [null] "
        "[\"its slot ends at byte 42 of a buffer of 40\"]");
}

void tst_ToolDiffProcess::verdictOfAProcessLeaf()
{
    QFETCH(QByteArray, former);
    QFETCH(QByteArray, now);
    QFETCH(QString, changes);
    const Pair files(process(former), process(now), "process");

    const ToolResult result = diff({QStringLiteral("--json"), files.former, files.now});

    QCOMPARE(changesIn(result.output).join(QLatin1Char('|')), changes);
    QCOMPARE(result.error, QString());
    QCOMPARE(result.exitCode, changes.contains(QLatin1String("breaking")) ? 1 : 0);
}

void tst_ToolDiffProcess::verdictOfARegion_data()
{
    QTest::addColumn<QByteArray>("former");
    QTest::addColumn<QByteArray>("now");
    QTest::addColumn<QString>("changes");

    QTest::newRow("size") << QByteArray(R"("sizeOfSharedMemory": 40)")
                          << QByteArray(R"("sizeOfSharedMemory": 44)")
                          << "attach process  sizeOfSharedMemory [40] [44]";
    QTest::newRow("no memory") << QByteArray(R"("sizeOfSharedMemory": 40)")
                               << QByteArray(R"("schemeVersion": 1)")
                               << "breaking process  sizeOfSharedMemory [40] [0]";
    QTest::newRow("second buffer")
        << QByteArray(R"("sizeOfSharedMemory": 40)")
        << QByteArray(R"("sizeOfSharedMemory": 40, "doubleBuffer": true)")
        << "breaking process  doubleBuffer [false] [true]";
    QTest::newRow("key") << QByteArray(R"("sizeOfSharedMemory": 40)")
                         << QByteArray(
                                R"("sizeOfSharedMemory": 40, "keyProcessDataMemory": "other")")
                         << "breaking process  keyProcessDataMemory [\"tesselDiff\"] [\"other\"]";
}

void tst_ToolDiffProcess::verdictOfARegion()
{
    QFETCH(QByteArray, former);
    QFETCH(QByteArray, now);
    QFETCH(QString, changes);
    const Pair files(process(leafA, former), process(leafA, now), "process");

    const ToolResult result = diff({QStringLiteral("--json"), files.former, files.now});

    QCOMPARE(changesIn(result.output), QStringList(changes));
    QCOMPARE(result.exitCode, changes.contains(QLatin1String("breaking")) ? 1 : 0);
}

void tst_ToolDiffProcess::leavesComeAndGo()
{
    const Pair files(process(leafA), process(leafA).replace("\"a\"", "\"b\""), "process");

    const ToolResult result = diff({QStringLiteral("--json"), files.former, files.now});

    QCOMPARE(changesIn(result.output),
             (QStringList{QStringLiteral("breaking process n/a removed [\"double\"] [null]"),
                          QStringLiteral("attach process n/b added [null] [\"double\"]")}));
    QCOMPARE(result.exitCode, 1);
}

void tst_ToolDiffProcess::newLeafInFreeRoomIsToBeAttached()
{
    const QByteArray both =
        QByteArray(leafA) + R"(}, "b": {"type": "int32", "sizeValue": 4, "offsetSharedMemory": 8)";
    const Pair files(process(leafA), process(both), "process");

    const ToolResult result = diff({files.former, files.now});

    QCOMPARE(result.output,
             QStringLiteral("VERDICT  KIND     URL  WHAT   OLD  NEW      REASON\n"
                            "attach   process  n/b  added       \"int32\"  the layout has another "
                            "fingerprint\n"
                            "\n"
                            "0 breaking, 1 attach, 0 compatible\n"));
    QCOMPARE(result.exitCode, 0);
}

/// Two leaves with one URL, of which nobody finds the one.
void tst_ToolDiffProcess::hiddenLeafOfAUrlIsNeverCompatible()
{
    const auto described = [](const QByteArray &hidden, const QByteArray &shown) {
        return process(leafA).replace(R"("value": {"n")",
                                      R"("value": {"n/a": {"type": "double", "sizeValue": 8, )"
                                      R"("displayPosition": 1, "offsetSharedMemory": )"
                                          + hidden + R"(}, "m/a": {"type": "double", )"
                                          + R"("sizeValue": 8, "offsetSharedMemory": 32, )"
                                          + R"("maxLimit": )" + shown + R"(}, "n")");
    };
    const Pair files(described("8", "1"), described("16", "2"), "process");

    const ToolResult result = diff({QStringLiteral("--json"), files.former, files.now});

    QCOMPARE(changesIn(result.output),
             (QStringList{QStringLiteral("compatible process m/a maxLimit [1] [2]"),
                          QStringLiteral("attach process n/a offsetSharedMemory [8] [16]")}));
    QCOMPARE(result.exitCode, 0);
}

void tst_ToolDiffProcess::whatIsReadAlikeIsNoChange_data()
{
    QTest::addColumn<QByteArray>("former");
    QTest::addColumn<QByteArray>("now");
    QTest::addColumn<QString>("kind");
    const QByteArray number = R"("type": "int32", "sizeValue": 4)";
    const QByteArray value = R"("type": "int64", "value": 5)";

    QTest::newRow("offset") << number + R"(, "offsetSharedMemory": 0)"
                            << number + R"(, "offsetSharedMemory": "0")"
                            << "process";
    QTest::newRow("no offset") << number << number + R"(, "offsetSharedMemory": 0)"
                               << "process";
    QTest::newRow("size") << number << QByteArray(R"("type": "int32", "sizeValue": "4")")
                          << "process";
    QTest::newRow("distance") << number + R"(, "relativeOffsetMetadata": 4)"
                              << number + R"(, "relativeOffsetMetadata": "4")"
                              << "process";
    QTest::newRow("size of the state")
        << number + R"(, "sizeMetadata": 4, "relativeOffsetMetadata": 4)"
        << number + R"(, "sizeMetadata": "4", "relativeOffsetMetadata": 4)"
        << "process";
    QTest::newRow("mask") << QByteArray(R"("type": "bit", "sizeValue": 1, "bitmask": 2)")
                          << QByteArray(R"("type": "bit", "sizeValue": 1, "bitmask": "2")")
                          << "process";
    QTest::newRow("read-only") << number + R"(, "readOnly": true)"
                               << number + R"(, "readOnly": "true")"
                               << "process";
    QTest::newRow("unit") << number + R"(, "unit": 5)" << number + R"(, "unit": "5")"
                          << "process";
    QTest::newRow("list") << number + R"(, "selectionList": [1, 2])"
                          << number + R"(, "selectionList": ["1", "2"])"
                          << "process";
    QTest::newRow("read-only value")
        << value + R"(, "readOnly": true)" << value + R"(, "readOnly": 1)"
        << "config";
    QTest::newRow("unit of a value")
        << value + R"(, "unitType": 5)" << value + R"(, "unitType": "5")"
        << "config";
    QTest::newRow("limit") << value + R"(, "minLimit": 1)" << value + R"(, "minLimit": "1")"
                           << "config";
    const QByteArray table = R"("type": "array", "value": [[1]], "arrayMaxRows": )";
    QTest::newRow("rows") << table + "3" << table + R"("3")"
                          << "config";
}

void tst_ToolDiffProcess::whatIsReadAlikeIsNoChange()
{
    QFETCH(QByteArray, former);
    QFETCH(QByteArray, now);
    QFETCH(QString, kind);
    const auto text = kind == QLatin1String("config") ? configuration(former) : process(former);
    const auto newText = kind == QLatin1String("config") ? configuration(now) : process(now);
    const Pair files(text, newText, kind.toLatin1().constData());

    const ToolResult result = diff({files.former, files.now});

    QCOMPARE(result.output, QStringLiteral("0 breaking, 0 attach, 0 compatible\n"));
    QCOMPARE(result.exitCode, 0);
}

void tst_ToolDiffProcess::stateOnItsOwnValueIsAFault_data()
{
    QTest::addColumn<QByteArray>("other");
    QTest::addColumn<QStringList>("changes");
    const QStringList own{
        "attach process n/a relativeOffsetMetadata [8] [4]",
        "breaking process n/a fault [null] [\"its error state begins in its own value\"]"};

    QTest::newRow("alone") << QByteArray("20") << own;
    QTest::newRow("with another") << QByteArray("4")
                                  << QStringList{
                                         "attach process n/a relativeOffsetMetadata [8] [4]",
                                         "breaking process n/a sharesWith [null] [\"n/b\"]",
                                         own.last(),
                                         "attach process n/b offsetSharedMemory [20] [4]",
                                         "breaking process n/b sharesWith [null] [\"n/a\"]"};
}

void tst_ToolDiffProcess::stateOnItsOwnValueIsAFault()
{
    QFETCH(QByteArray, other);
    QFETCH(QStringList, changes);
    const auto described = [](const QByteArray &distance, const QByteArray &offset) {
        return process(
            QByteArray(leafA) + R"(, "sizeMetadata": 4, "relativeOffsetMetadata": )" + distance
            + R"(}, "b": {"type": "int32", "sizeValue": 4, "offsetSharedMemory": )" + offset);
    };
    const Pair files(described("8", "20"), described("4", other), "process");

    const ToolResult result = diff({QStringLiteral("--json"), files.former, files.now});

    QCOMPARE(changesIn(result.output), changes);
    QCOMPARE(result.exitCode, 1);
}

QTEST_GUILESS_MAIN(tst_ToolDiffProcess)
#include "tst_ToolDiffProcess.moc"
