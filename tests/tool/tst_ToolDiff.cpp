#include "ToolDescription.h"
#include "TwoFiles.h"

#include <QJsonArray>

#include <sys/stat.h>

namespace {

ToolResult diff(const QStringList &arguments)
{
    return runTool(QStringList(QStringLiteral("diff")) + arguments);
}

/// A description with one leaf, `n/a`, that a test gives in JSON without the braces.
QByteArray process(const QByteArray &leaf, const QByteArray &root = R"("sizeOfSharedMemory": 40)")
{
    return R"({"type": "treenode", "keyProcessDataMemory": "tesselDiff", )" + root
           + R"(, "value": {"n": {"type": "treenode", "value": {"a": {)" + leaf + "}}}}}";
}

QByteArray configuration(const QByteArray &leaf, const QByteArray &root = R"("modifiedBy": "me")")
{
    return R"({"type": "treenode", )" + root
           + R"(, "value": {"n": {"type": "treenode", "value": {"a": {)" + leaf + "}}}}}";
}

/// The two texts in two files of one kind.
struct Pair
{
    Pair(const QByteArray &formerText, const QByteArray &nowText, const char *kind)
        : former(folder.write(QStringLiteral("old.%1.json").arg(QLatin1String(kind)), formerText))
        , now(folder.write(QStringLiteral("new.%1.json").arg(QLatin1String(kind)), nowText))
    {
    }

    ToolDescription folder;
    QString former;
    QString now;
};

/// Each change as "VERDICT KIND URL WHAT OLD NEW".
QStringList changesIn(const QString &json)
{
    const auto text = [](const QJsonValue &value) {
        return QString::fromUtf8(QJsonDocument(QJsonArray{value}).toJson(QJsonDocument::Compact));
    };
    QStringList changes;
    for (const auto &entry : QJsonDocument::fromJson(json.toUtf8()).array()) {
        const QJsonObject object = entry.toObject();
        for (const auto &changed : object.value(QStringLiteral("changes")).toArray()) {
            const QJsonObject change = changed.toObject();
            changes.append(QStringList{change.value(QStringLiteral("verdict")).toString(),
                                       object.value(QStringLiteral("kind")).toString(),
                                       object.value(QStringLiteral("url")).toString(),
                                       change.value(QStringLiteral("what")).toString(),
                                       text(change.value(QStringLiteral("old"))),
                                       text(change.value(QStringLiteral("new")))}
                               .join(QLatin1Char(' ')));
        }
    }
    return changes;
}

const char *const leafA = R"("type": "double", "sizeValue": 8, "offsetSharedMemory": 0)";

} // namespace

/// `tessel diff`.
class tst_ToolDiff : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void changesAreATable();
    void jsonHasAnObjectAUrl();
    void sameDescriptionsDoNotDiffer();
    void verdictOfAProcessLeaf_data();
    void verdictOfAProcessLeaf();
    void verdictOfARegion_data();
    void verdictOfARegion();
    void leavesComeAndGo();
    void newLeafInFreeRoomIsToBeAttached();
    void anotherFingerprintIsNeverCompatible();
    void newSlotsOnOneByteAreBreaking();
    void whatIsReadAlikeIsNoChange_data();
    void whatIsReadAlikeIsNoChange();
    void stateOnItsOwnValueIsAFault_data();
    void stateOnItsOwnValueIsAFault();
    void verdictOfAConfigurationLeaf_data();
    void verdictOfAConfigurationLeaf();
    void onlyTheLimitAtFaultIsBreaking_data();
    void onlyTheLimitAtFaultIsBreaking();
    void stampsAreChanges();
    void cellsAreComparedOneByOne();
    void otherNumberOfRowsIsOneChange();
    void foldersAreComparedAsBuilt();
    void foldersHoldBothKinds();
    void fileThatIsNoDescriptionIsRefused_data();
    void fileThatIsNoDescriptionIsRefused();
    void kindsAreNotMixed();
    void wrongUse_data();
    void wrongUse();
    void closedPipeLeavesTheAnswer();
    void fullOutputIsAFailure();
};

void tst_ToolDiff::changesAreATable()
{
    const Pair files(
        process(R"("type": "double", "sizeValue": 8, "offsetSharedMemory": 0, "unit": "m")"),
        process(R"("type": "double", "sizeValue": 8, "offsetSharedMemory": 8, "unit": "mm",
                                "maxLimit": 5)"),
        "process");

    const ToolResult result = diff({files.former, files.now});

    QCOMPARE(result.output,
             QStringLiteral(
                 "VERDICT     KIND     URL  WHAT                OLD  NEW   REASON\n"
                 "compatible  process  n/a  maxLimit                 5\n"
                 "attach      process  n/a  offsetSharedMemory  0    8     it lies elsewhere\n"
                 "breaking    process  n/a  unit                \"m\"  \"mm\"  its numbers mean "
                 "something else\n"
                 "\n"
                 "1 breaking, 0 attach, 0 compatible\n"));
    QCOMPARE(result.error, QString());
    QCOMPARE(result.exitCode, 1);
}

void tst_ToolDiff::jsonHasAnObjectAUrl()
{
    const Pair files(process(leafA),
                     process(R"("type": "double", "sizeValue": 8, "offsetSharedMemory": 16)"),
                     "process");

    const ToolResult result = diff({QStringLiteral("--json"), files.former, files.now});

    QCOMPARE(
        result.output,
        QStringLiteral(
            "[\n"
            "  {\"kind\": \"process\", \"url\": \"n/a\", \"verdict\": \"attach\", \"changes\": "
            "[{\"what\": \"offsetSharedMemory\", \"old\": 0, \"new\": 16, \"verdict\": "
            "\"attach\", \"reason\": \"it lies elsewhere\"}]}\n"
            "]\n"));
    QCOMPARE(result.exitCode, 0);
}

void tst_ToolDiff::sameDescriptionsDoNotDiffer()
{
    const Pair files(process(leafA), process(leafA), "process");

    const ToolResult plain = diff({files.former, files.now});
    const ToolResult json = diff({QStringLiteral("--json"), files.former, files.now});

    QCOMPARE(plain.output, QStringLiteral("0 breaking, 0 attach, 0 compatible\n"));
    QCOMPARE(plain.exitCode, 0);
    QCOMPARE(json.output, QStringLiteral("[]\n"));
    QCOMPARE(json.exitCode, 0);
}

void tst_ToolDiff::verdictOfAProcessLeaf_data()
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

void tst_ToolDiff::verdictOfAProcessLeaf()
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

void tst_ToolDiff::verdictOfARegion_data()
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

void tst_ToolDiff::verdictOfARegion()
{
    QFETCH(QByteArray, former);
    QFETCH(QByteArray, now);
    QFETCH(QString, changes);
    const Pair files(process(leafA, former), process(leafA, now), "process");

    const ToolResult result = diff({QStringLiteral("--json"), files.former, files.now});

    QCOMPARE(changesIn(result.output), QStringList(changes));
    QCOMPARE(result.exitCode, changes.contains(QLatin1String("breaking")) ? 1 : 0);
}

void tst_ToolDiff::leavesComeAndGo()
{
    const Pair files(process(leafA), process(leafA).replace("\"a\"", "\"b\""), "process");

    const ToolResult result = diff({QStringLiteral("--json"), files.former, files.now});

    QCOMPARE(changesIn(result.output),
             (QStringList{QStringLiteral("breaking process n/a removed [\"double\"] [null]"),
                          QStringLiteral("attach process n/b added [null] [\"double\"]")}));
    QCOMPARE(result.exitCode, 1);
}

void tst_ToolDiff::newLeafInFreeRoomIsToBeAttached()
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

/// Two leaves with one URL, of which the changes of one cannot be told.
void tst_ToolDiff::anotherFingerprintIsNeverCompatible()
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
             (QStringList{
                 QStringLiteral(
                     "attach process  fingerprint [\"58ef010d930aad45\"] [\"149ec05aff28ddbd\"]"),
                 QStringLiteral("compatible process m/a maxLimit [1] [2]")}));
    QCOMPARE(result.exitCode, 0);
}

void tst_ToolDiff::newSlotsOnOneByteAreBreaking()
{
    const QByteArray other = R"("}, "b": {"type": "int32", "sizeValue": 4, "offsetSharedMemory": )";
    const QByteArray first = QByteArray(leafA) + other.mid(1);
    const Pair files(process(first + "8"), process(first + "4"), "process");

    const ToolResult result = diff({QStringLiteral("--json"), files.former, files.now});

    QCOMPARE(changesIn(result.output),
             (QStringList{QStringLiteral("breaking process n/a sharesWith [null] [\"n/b\"]"),
                          QStringLiteral("attach process n/b offsetSharedMemory [8] [4]"),
                          QStringLiteral("breaking process n/b sharesWith [null] [\"n/a\"]")}));
    QCOMPARE(result.exitCode, 1);
}

void tst_ToolDiff::whatIsReadAlikeIsNoChange_data()
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

void tst_ToolDiff::whatIsReadAlikeIsNoChange()
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

void tst_ToolDiff::stateOnItsOwnValueIsAFault_data()
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

void tst_ToolDiff::stateOnItsOwnValueIsAFault()
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

void tst_ToolDiff::verdictOfAConfigurationLeaf_data()
{
    QTest::addColumn<QByteArray>("former");
    QTest::addColumn<QByteArray>("now");
    QTest::addColumn<QString>("changes");
    const QByteArray number = R"("type": "int64", "value": 5)";
    const QByteArray text = R"("type": "string", "value": "abc")";
    const auto add = [](const char *name, const QByteArray &former, const QByteArray &now,
                        const char *changes) {
        QTest::newRow(name) << former << now << QString::fromUtf8(changes);
    };
    add("value", number, R"("type": "int64", "value": 6)", "compatible config n/a value [5] [6]");
    add("nothing entered", number, R"("type": "int64", "value": null)",
        "compatible config n/a value [5] [null]");
    add("new unit", R"("type": "string", "value": "5")",
        R"("type": "string", "value": "5", "unit": "m")",
        "compatible config n/a unit [null] [\"m\"]");
    add("unit", number + R"(, "unit": "s")", number + R"(, "unit": "ms")",
        "breaking config n/a unit [\"s\"] [\"ms\"]");
    add("limit that allows the value", number + R"(, "maxLimit": 9)", number + R"(, "maxLimit": 5)",
        "compatible config n/a maxLimit [9] [5]");
    add("limit that refuses the value", number + R"(, "maxLimit": 9)",
        number + R"(, "maxLimit": 4)", "breaking config n/a maxLimit [9] [4]");
    add("pattern that allows the value", text, text + R"(, "regularExpression": "[a-z]+")",
        "compatible config n/a regularExpression [null] [\"[a-z]+\"]");
    add("pattern that refuses the value", text, text + R"(, "regularExpression": "[0-9]+")",
        "breaking config n/a regularExpression [null] [\"[0-9]+\"]");
    add("read-only", number, number + R"(, "readOnly": true)",
        "breaking config n/a readOnly [null] [true]");
    add("list", R"("type": "selector", "value": 0, "selectionList": ["a"])",
        R"("type": "selector", "value": 0, "selectionList": ["b"])",
        "breaking config n/a selectionList [[\"a\"]] [[\"b\"]]");
    add("columns",
        R"("type": "array", "value": [], "arrayInformation": [[{}], [{"type": "int8"}]])",
        R"("type": "array", "value": [], "arrayInformation": [[{}], [{"type": "int16"}]])",
        "breaking config n/a arrayInformation [[[{}],[{\"type\":\"int8\"}]]] "
        "[[[{}],[{\"type\":\"int16\"}]]]");
    add("titles of columns",
        R"("type": "array", "value": [], "arrayInformation": [[{}], [{"labelTextId": "a"}]])",
        R"("type": "array", "value": [], "arrayInformation": [[{}], [{"labelTextId": "b"}]])",
        "compatible config n/a arrayInformation [[[{}],[{\"labelTextId\":\"a\"}]]] "
        "[[[{}],[{\"labelTextId\":\"b\"}]]]");
    const auto choices = [](const QByteArray &list) {
        return R"("type": "array", "value": [], "arrayInformation": [[{}], [{"selectionList": )"
               + list + "}]]";
    };
    const auto addChoices = [&](const char *name, const QByteArray &verdict,
                                const QByteArray &list) {
        add(name, choices(R"(["a","b"])"), choices(list),
            verdict + R"( config n/a arrayInformation [[[{}],[{"selectionList":["a","b"]}]]] )"
                + R"([[[{}],[{"selectionList":)" + list + "}]]]");
    };
    addChoices("longer list of a column", "compatible", R"(["a","b","c"])");
    addChoices("other order in a column", "breaking", R"(["b","a"])");
    addChoices("shorter list of a column", "breaking", R"(["a"])");
    const QByteArray rows = R"("type": "array", "value": [[1],[2]], "arrayHasDynamicRows": true)";
    add("most rows that allow the value", rows + R"(, "arrayMaxRows": 9)",
        rows + R"(, "arrayMaxRows": 2)", "compatible config n/a arrayMaxRows [9] [2]");
    add("most rows that refuse the value", rows + R"(, "arrayMaxRows": 9)",
        rows + R"(, "arrayMaxRows": 1)", "breaking config n/a arrayMaxRows [9] [1]");
    add("most rows that have refused the value", rows + R"(, "arrayMaxRows": 1)",
        rows + R"(, "arrayMaxRows": 0)", "compatible config n/a arrayMaxRows [1] [0]");
    add("no rows where any were allowed", rows, rows + R"(, "arrayMaxRows": 0)",
        "breaking config n/a arrayMaxRows [null] [0]");
    add("no most rows", rows + R"(, "arrayMaxRows": 9)", rows,
        "compatible config n/a arrayMaxRows [9] [null]");
    add("least rows that allow the value", rows, rows + R"(, "arrayMinRows": 2)",
        "compatible config n/a arrayMinRows [null] [2]");
    add("least rows that refuse the value", rows, rows + R"(, "arrayMinRows": 3)",
        "breaking config n/a arrayMinRows [null] [3]");
    add("least rows of what is no table", number, number + R"(, "arrayMinRows": 3)",
        "compatible config n/a arrayMinRows [null] [3]");
    add("type", number, R"("type": "int32", "value": 5)",
        "breaking config n/a type [\"int64\"] [\"int32\"]");
}

void tst_ToolDiff::verdictOfAConfigurationLeaf()
{
    QFETCH(QByteArray, former);
    QFETCH(QByteArray, now);
    QFETCH(QString, changes);
    const Pair files(configuration(former), configuration(now), "config");

    const ToolResult result = diff({QStringLiteral("--json"), files.former, files.now});

    QCOMPARE(changesIn(result.output), QStringList(changes));
    QCOMPARE(result.error, QString());
    QCOMPARE(result.exitCode, changes.contains(QLatin1String("breaking")) ? 1 : 0);
}

void tst_ToolDiff::onlyTheLimitAtFaultIsBreaking_data()
{
    QTest::addColumn<QByteArray>("former");
    QTest::addColumn<QByteArray>("now");
    QTest::addColumn<QStringList>("changes");
    const QByteArray number = R"("type": "int64", "value": 0, )";
    const QByteArray rows = R"("type": "array", "value": [[1], [2]], )";

    QTest::newRow("least") << number + R"("minLimit": -5, "maxLimit": 10)"
                           << number + R"("minLimit": 1, "maxLimit": 20)"
                           << QStringList{"compatible config n/a maxLimit [10] [20]",
                                          "breaking config n/a minLimit [-5] [1]"};
    QTest::newRow("most") << number + R"("minLimit": -5, "maxLimit": 10)"
                          << number + R"("minLimit": -9, "maxLimit": -1)"
                          << QStringList{"breaking config n/a maxLimit [10] [-1]",
                                         "compatible config n/a minLimit [-5] [-9]"};
    QTest::newRow("rows") << rows + R"("arrayMinRows": 1, "arrayMaxRows": 4)"
                          << rows + R"("arrayMinRows": 3, "arrayMaxRows": 8)"
                          << QStringList{"compatible config n/a arrayMaxRows [4] [8]",
                                         "breaking config n/a arrayMinRows [1] [3]"};
}

void tst_ToolDiff::onlyTheLimitAtFaultIsBreaking()
{
    QFETCH(QByteArray, former);
    QFETCH(QByteArray, now);
    QFETCH(QStringList, changes);
    const Pair files(configuration(former), configuration(now), "config");

    const ToolResult result = diff({QStringLiteral("--json"), files.former, files.now});

    QCOMPARE(changesIn(result.output), changes);
    QCOMPARE(result.exitCode, 1);
}

void tst_ToolDiff::stampsAreChanges()
{
    // Numbers that a double cannot tell apart.
    const Pair files(
        configuration(R"("type": "int64", "value": "9007199254740992")",
                      R"("modifiedBy": "Line", "lastModified": "2026-01-05T09:12:44.031Z")"),
        configuration(R"("type": "int64", "value": "9007199254740993")",
                      R"("modifiedBy": "Desk", "lastModified": "2026-01-06T10:00:00.000Z")"),
        "config");

    const ToolResult result = diff({files.former, files.now});

    QCOMPARE(
        result.output,
        QStringLiteral(
            "VERDICT     KIND    URL  WHAT          OLD                         NEW"
            "                         REASON\n"
            "compatible  config       lastModified  \"2026-01-05T09:12:44.031Z\"  "
            "\"2026-01-06T10:00:00.000Z\"\n"
            "compatible  config       modifiedBy    \"Line\"                      \"Desk\"\n"
            "compatible  config  n/a  value         9007199254740992            9007199254740993\n"
            "\n"
            "0 breaking, 0 attach, 2 compatible\n"));
    QCOMPARE(result.exitCode, 0);
}

void tst_ToolDiff::cellsAreComparedOneByOne()
{
    const Pair files(configuration(R"("type": "array", "value": [[1, "x"], [2, "y"]])"),
                     configuration(R"("type": "array", "value": [[1, "z"], [3, "y"]])"), "config");

    const ToolResult result = diff({QStringLiteral("--json"), files.former, files.now});

    QCOMPARE(changesIn(result.output),
             (QStringList{QStringLiteral("compatible config n/a#0,1 value [\"x\"] [\"z\"]"),
                          QStringLiteral("compatible config n/a#1,0 value [2] [3]")}));
    QCOMPARE(result.exitCode, 0);
}

void tst_ToolDiff::otherNumberOfRowsIsOneChange()
{
    const Pair files(configuration(R"("type": "array", "value": [[1], [2]])"),
                     configuration(R"("type": "array", "value": [[1], [2], [3]])"), "config");

    const ToolResult plain = diff({files.former, files.now});
    const ToolResult json = diff({QStringLiteral("--json"), files.former, files.now});

    QVERIFY(plain.output.contains(QLatin1String("value  2 rows  3 rows\n")));
    QCOMPARE(
        changesIn(json.output),
        QStringList(QStringLiteral("compatible config n/a value [[[1],[2]]] [[[1],[2],[3]]]")));
}

void tst_ToolDiff::foldersAreComparedAsBuilt()
{
    const TwoFiles former;
    const TwoFiles now;
    QCOMPARE(runBuild(now.path()).exitCode, 0);
    const QJsonObject built = now.json(fileA);
    const auto before = former.snapshot();

    const ToolResult result = diff({QStringLiteral("--json"), former.path(), now.path()});

    // The files of one have no offsets yet; a build gives both the same.
    QCOMPARE(changesIn(result.output),
             QStringList(QStringLiteral("compatible process  keyProcessDataMemory [null] [\"%1\"]")
                             .arg(Description::keyOf(built))));
    QCOMPARE(result.exitCode, 0);
    QCOMPARE(former.snapshot(), before);
}

void tst_ToolDiff::foldersHoldBothKinds()
{
    const TwoFiles former;
    const TwoFiles now;
    former.write(QStringLiteral("a.config.json"), configuration(R"("type": "int8", "value": 1)"));
    now.write(QStringLiteral("a.config.json"), configuration(R"("type": "int8", "value": 2)"));
    now.write(fileB, Description::root({{QStringLiteral("z"), Description::leaf(1, 8, 0)}}));
    const ToolResult result = diff({QStringLiteral("--json"), former.path(), now.path()});

    QCOMPARE(changesIn(result.output).filter(QStringLiteral("config")),
             QStringList(QStringLiteral("compatible config a/n/a value [1] [2]")));
    QVERIFY(changesIn(result.output)
                .contains(QStringLiteral("breaking process sub/b/z sizeMetadata [1] [0]")));
    QCOMPARE(result.exitCode, 1);
}

void tst_ToolDiff::fileThatIsNoDescriptionIsRefused_data()
{
    QTest::addColumn<QString>("path");
    QTest::addColumn<QString>("reason");
    QTest::addColumn<int>("exitCode");

    QTest::newRow("missing") << "none.process.json"
                             << "no such file or folder" << 3;
    QTest::newRow("no JSON") << "bad.process.json"
                             << "cannot be parsed: line 1, column 1: illegal value" << 9;
    QTest::newRow("another name") << "plant.json"
                                  << "no description; its name must end in .process.json or "
                                     ".config.json"
                                  << 9;
    QTest::newRow("an empty folder") << "folder"
                                     << "holds no description; their names end in .process.json or "
                                        ".config.json"
                                     << 9;
    QTest::newRow("a FIFO") << "fifo.process.json"
                            << "is no regular file" << 9;
    QTest::newRow("a device") << "zero.process.json"
                              << "is no regular file" << 9;
    QTest::newRow("no permission") << "closed.process.json"
                                   << "no permission to read it" << 4;
}

void tst_ToolDiff::fileThatIsNoDescriptionIsRefused()
{
    QFETCH(QString, path);
    QFETCH(QString, reason);
    QFETCH(int, exitCode);
    if (!makePermissionsCount()) {
        QSKIP("The system does not take root's permissions away.");
    }
    const Pair files(process(leafA), process(leafA), "process");
    const ToolDescription &folder = files.folder;
    folder.write(QStringLiteral("bad.process.json"), "");
    folder.write(QStringLiteral("plant.json"), process(leafA));
    const NarrowPermissions narrow(
        folder.write(QStringLiteral("closed.process.json"), process(leafA)), {});
    const QString fifo = folder.path(QStringLiteral("fifo.process.json"));
    QCOMPARE(::mkfifo(QFile::encodeName(fifo).constData(), 0600), 0);
    QVERIFY(
        QFile::link(QStringLiteral("/dev/zero"), folder.path(QStringLiteral("zero.process.json"))));
    QVERIFY(QDir().mkpath(folder.path(QStringLiteral("folder"))));

    const ToolResult first = diff({folder.path(path), files.now});
    const ToolResult second = diff({files.former, folder.path(path)});

    const QString expected = QStringLiteral("tessel: %1: %2\n").arg(folder.path(path), reason);
    QCOMPARE(first.error, expected);
    QCOMPARE(first.exitCode, exitCode);
    QCOMPARE(second.error, expected);
    QCOMPARE(second.output, QString());
    QCOMPARE(second.exitCode, exitCode);
}

void tst_ToolDiff::kindsAreNotMixed()
{
    const ToolDescription folder;
    const QString left = folder.write(QStringLiteral("a.process.json"), process(leafA));
    const QString right = folder.write(QStringLiteral("a.config.json"),
                                       configuration(R"("type": "int8", "value": 1)"));

    const ToolResult result = diff({left, right});

    QCOMPARE(result.error,
             QStringLiteral("tessel: diff: %1 and %2 hold descriptions of different kinds; see "
                            "'tessel diff --help'\n")
                 .arg(left, right));
    QCOMPARE(result.exitCode, 2);
}

void tst_ToolDiff::wrongUse_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<QString>("reason");

    QTest::newRow("nothing") << QStringList() << "OLD is missing";
    QTest::newRow("one") << QStringList{"a"} << "NEW is missing";
    QTest::newRow("three") << QStringList{"a", "b", "c"} << "'c' is one argument too many";
    QTest::newRow("typo") << QStringList{"--jsno", "a", "b"}
                          << "unknown option '--jsno' (did you mean '--json'?)";
}

void tst_ToolDiff::wrongUse()
{
    QFETCH(QStringList, arguments);
    QFETCH(QString, reason);

    // A description that may be left out elsewhere is named here.
    const ToolResult result = runTool(QStringList(QStringLiteral("diff")) + arguments,
                                      {QStringLiteral("TESSEL_DIR=/nowhere")});

    QCOMPARE(result.error,
             QStringLiteral("tessel: diff: %1; see 'tessel diff --help'\n").arg(reason));
    QCOMPARE(result.output, QString());
    QCOMPARE(result.exitCode, 2);
}

void tst_ToolDiff::closedPipeLeavesTheAnswer()
{
    const Pair alike(process(leafA), process(leafA), "process");
    const Pair broken(process(leafA), process(R"("type": "float", "sizeValue": 4)"), "process");

    for (const QStringList &options : {QStringList(), QStringList(QStringLiteral("--json"))}) {
        const QStringList diff = QStringList(QStringLiteral("diff")) + options;
        QCOMPARE(exitCodeWithoutReader(diff + QStringList{alike.former, alike.now}), 0);
        QCOMPARE(exitCodeWithoutReader(diff + QStringList{broken.former, broken.now}), 1);
    }
}

void tst_ToolDiff::fullOutputIsAFailure()
{
    const Pair files(process(leafA), process(leafA), "process");

    for (const char *option : {"--json", "--"}) {
        QProcess shell;
        shell.start(QStringLiteral("sh"),
                    {QStringLiteral("-c"), QStringLiteral("exec \"$@\" >/dev/full"),
                     QStringLiteral("sh"), QStringLiteral(TESSEL_TOOL), QStringLiteral("diff"),
                     QLatin1String(option), files.former, files.now});
        QVERIFY(shell.waitForFinished());

        QCOMPARE(QString::fromUtf8(shell.readAllStandardError()),
                 QStringLiteral("tessel: standard output: No space left on device\n"));
        QCOMPARE(shell.exitCode(), 9);
    }
}

QTEST_GUILESS_MAIN(tst_ToolDiff)
#include "tst_ToolDiff.moc"
