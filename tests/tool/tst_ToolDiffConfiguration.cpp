#include "ComparedPair.h"

/// `tessel diff` of configurations.
class tst_ToolDiffConfiguration : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void verdictOfAConfigurationLeaf_data();
    void verdictOfAConfigurationLeaf();
    void onlyTheLimitAtFaultIsBreaking_data();
    void onlyTheLimitAtFaultIsBreaking();
    void stampsAreChanges();
    void cellsAreComparedOneByOne();
    void otherNumberOfRowsIsOneChange();
};

void tst_ToolDiffConfiguration::verdictOfAConfigurationLeaf_data()
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
    const auto limits = [](const QByteArray &limit) {
        return R"("type": "array", "value": [[1],[5],[null]], "arrayInformation": [[{}], [{"type": )"
               R"("int32", "maxLimit": )"
               + limit + "}]]";
    };
    const auto addLimits = [&](const char *name, const QByteArray &verdict,
                               const QByteArray &former, const QByteArray &now) {
        const QByteArray column = R"([[[{}],[{"maxLimit":%,"type":"int32"}]]])";
        add(name, limits(former), limits(now),
            verdict + " config n/a arrayInformation " + QByteArray(column).replace("%", former)
                + ' ' + QByteArray(column).replace("%", now));
    };
    addLimits("limit of a column that allows the cells", "compatible", "9", "5");
    addLimits("limit of a column that refuses a cell", "breaking", "9", "4");
    addLimits("limit of a column that has refused a cell", "compatible", "4", "3");
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

void tst_ToolDiffConfiguration::verdictOfAConfigurationLeaf()
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

void tst_ToolDiffConfiguration::onlyTheLimitAtFaultIsBreaking_data()
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

void tst_ToolDiffConfiguration::onlyTheLimitAtFaultIsBreaking()
{
    QFETCH(QByteArray, former);
    QFETCH(QByteArray, now);
    QFETCH(QStringList, changes);
    const Pair files(configuration(former), configuration(now), "config");

    const ToolResult result = diff({QStringLiteral("--json"), files.former, files.now});

    QCOMPARE(changesIn(result.output), changes);
    QCOMPARE(result.exitCode, 1);
}

void tst_ToolDiffConfiguration::stampsAreChanges()
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

void tst_ToolDiffConfiguration::cellsAreComparedOneByOne()
{
    const Pair files(configuration(R"("type": "array", "value": [[1, "x"], [2, "y"]])"),
                     configuration(R"("type": "array", "value": [[1, "z"], [3, "y"]])"), "config");

    const ToolResult result = diff({QStringLiteral("--json"), files.former, files.now});

    QCOMPARE(changesIn(result.output),
             (QStringList{QStringLiteral("compatible config n/a#0,1 value [\"x\"] [\"z\"]"),
                          QStringLiteral("compatible config n/a#1,0 value [2] [3]")}));
    QCOMPARE(result.exitCode, 0);
}

void tst_ToolDiffConfiguration::otherNumberOfRowsIsOneChange()
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

QTEST_GUILESS_MAIN(tst_ToolDiffConfiguration)
#include "tst_ToolDiffConfiguration.moc"
