#include "DeviceConfiguration.h"

#include <QTemporaryDir>

namespace {

const QString url = QStringLiteral("inputs/calibration/table");
const QString titles = QStringLiteral("inputs.reference,inputs.reading,inputs.pointState\n");

/// Texts that a careless writer of CSV would break, and arrays of other kinds.
const QByteArray texts = R"({"type":"treenode","modifiedBy":"","lastModified":"","value":{
"table":{"type":"array","value":[["a,b",1],["say \u0022x\u0022",2],["two\nlines",null]],
"arrayInformation":[[],[{"type":"string","labelTextId":"name, full"},
{"type":"uint8","maxLimit":9}]]},
"fixed":{"type":"array","readOnly":true,"value":[[1]],"arrayInformation":[[],[{"type":"int32"}]]},
"single":{"type":"array","value":[["x"],[""]],"arrayInformation":[[],[{"type":"string"}]]},
"empty":{"type":"array","arrayHasDynamicRows":true,"arrayMaxRows":2,"value":[],
"arrayInformation":[[],[{"type":"int32"},{"type":"string"}]]},
"open":{"type":"array","arrayHasDynamicRows":true,"arrayMinRows":1,"value":[[1]],
"arrayInformation":[[],[{"type":"int32"}]]}}})";

} // namespace

/// What `tessel config table` prints, imports and refuses.
class tst_ToolConfigTable : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup() { m_device.reset(); }

    void tableIsAligned();
    void tableWithoutRowsShowsItsColumns();
    void csvIsForPrograms();
    void csvIsQuoted();
    void tableIsPrintedAsJson();
    void patternPrintsEachTableWithItsUrl();
    void csvOfSeveralTablesIsRefused();
    void importTakesNoPattern();
    void whatIsExportedIsImportedUnchanged_data();
    void whatIsExportedIsImportedUnchanged();
    void importReplacesTheRows_data();
    void importReplacesTheRows();
    void importWritesAndStampsOneFile();
    void dryRunOfAnImportWritesNothing();
    void emptyCellIsNothingEntered();
    void importIsRefused_data();
    void importIsRefused();
    void leafThatIsNoArrayIsRefused();
    void missingTargetsAreNotFound();
    void fileThatCannotBeReadIsNoEmptyTable();

private:
    ToolResult import(const QString &target, const QByteArray &csv);

    QScopedPointer<DeviceConfiguration> m_device;
    QScopedPointer<QTemporaryDir> m_elsewhere;
    QString m_file;
};

void tst_ToolConfigTable::init()
{
    m_device.reset(new DeviceConfiguration);
    m_elsewhere.reset(new QTemporaryDir);
    m_file = m_elsewhere->filePath("points.csv");
    QVERIFY(m_device->directory().write("texts.config.json", texts));
}

ToolResult tst_ToolConfigTable::import(const QString &target, const QByteArray &csv)
{
    QFile file(m_file);
    if (!file.open(QIODevice::WriteOnly) || file.write(csv) != csv.size()) {
        qFatal("The table cannot be written");
    }
    file.close();
    return m_device->run("table", {target, "--import", m_file});
}

void tst_ToolConfigTable::tableIsAligned()
{
    const ToolResult result = m_device->run("table", {url});

    QCOMPARE(result.error, QString());
    QCOMPARE(result.output, QString("ROW   inputs.reference  inputs.reading  inputs.pointState\n"
                                    "type            double          double  selector\n"
                                    "unit           current           level\n"
                                    "0                    4               0  used\n"
                                    "1                    8            25.1  used\n"
                                    "2                   12            49.9  used\n"
                                    "3                   20             100  suspect\n"));
    QCOMPARE(result.exitCode, 0);
}

void tst_ToolConfigTable::tableWithoutRowsShowsItsColumns()
{
    QCOMPARE(m_device->run("table", {"texts/empty"}).output, QString("ROW   column 0  column 1\n"
                                                                     "type     int32  string\n"
                                                                     "unit\n"));
    QCOMPARE(m_device->run("table", {"texts/empty", "--csv"}).output,
             QString("column 0,column 1\n"));
}

void tst_ToolConfigTable::csvIsForPrograms()
{
    const ToolResult result = m_device->run("table", {url, "--csv"});

    QCOMPARE(result.error, QString());
    QCOMPARE(result.output, titles + "4,0,used\n8,25.1,used\n12,49.9,used\n20,100,suspect\n");
    QCOMPARE(result.exitCode, 0);
}

void tst_ToolConfigTable::csvIsQuoted()
{
    QCOMPARE(m_device->run("table", {"texts/table", "--csv"}).output,
             QString("\"name, full\",column 1\n\"a,b\",1\n\"say \"\"x\"\"\",2\n\"two\nlines\",\n"));
    QCOMPARE(m_device->run("table", {"texts/single", "--csv"}).output,
             QString("column 0\nx\n\"\"\n"));
}

void tst_ToolConfigTable::tableIsPrintedAsJson()
{
    QCOMPARE(m_device->run("table", {"texts/table", "--json"}).output,
             QString("{\"url\": \"texts/table\", \"columns\": [{\"title\": \"name, full\", "
                     "\"type\": \"string\", \"unitType\": \"\"}, {\"title\": \"column 1\", "
                     "\"type\": \"uint8\", \"unitType\": \"\"}], \"rows\": [[\"a,b\", 1], "
                     "[\"say \\\"x\\\"\", 2], [\"two\\nlines\", null]]}\n"));
}

void tst_ToolConfigTable::whatIsExportedIsImportedUnchanged_data()
{
    QTest::addColumn<QString>("target");

    for (const char *target :
         {"inputs/calibration/table", "texts/table", "texts/single", "texts/empty"}) {
        QTest::newRow(target) << QString(target);
    }
}

void tst_ToolConfigTable::whatIsExportedIsImportedUnchanged()
{
    QFETCH(QString, target);
    const auto former = m_device->directory().snapshot();
    const QByteArray csv = m_device->run("table", {target, "--csv"}).output.toUtf8();

    const ToolResult result = import(target, csv);

    QCOMPARE(result.error, QString());
    QCOMPARE(result.output, target + ": unchanged\n");
    QCOMPARE(result.exitCode, 0);
    QCOMPARE(m_device->directory().snapshot(), former);
}

void tst_ToolConfigTable::importReplacesTheRows_data()
{
    QTest::addColumn<QString>("target");
    QTest::addColumn<QByteArray>("csv");
    QTest::addColumn<QString>("printed");

    QTest::newRow("with the titles") << url << (titles.toUtf8() + "4,0.5,used\n20,99,ignored\n")
                                     << titles + "4,0.5,used\n20,99,ignored\n";
    QTest::newRow("without the titles") << url << QByteArray("4,0.5,used\n20,99,ignored\n")
                                        << titles + "4,0.5,used\n20,99,ignored\n";
    QTest::newRow("line ends of RFC 4180")
        << url << QByteArray("4,0,0\r\n20,99,2\r\n") << titles + "4,0,used\n20,99,ignored\n";
    QTest::newRow("no last line end")
        << url << QByteArray("4,0,0\n20,99,2") << titles + "4,0,used\n20,99,ignored\n";
    QTest::newRow("byte order mark") << url
                                     << QByteArray("\xEF\xBB\xBF"
                                                   "4,0,0\n20,99,2\n")
                                     << titles + "4,0,used\n20,99,ignored\n";
    QTest::newRow("most rows") << url << QByteArray("1,1,0\n").repeated(8)
                               << titles + QString("1,1,used\n").repeated(8);
    QTest::newRow("quoted") << "texts/table" << QByteArray("\"\"\"\",3\n\"a\r\nb\",4\n ,5\n")
                            << "\"name, full\",column 1\n\"\"\"\",3\n\"a\r\nb\",4\n ,5\n";
    QTest::newRow("into no rows") << "texts/empty" << QByteArray("1,a\n2,b\n")
                                  << "column 0,column 1\n1,a\n2,b\n";
    QTest::newRow("without a maximum") << "texts/open" << QByteArray("1\n").repeated(100)
                                       << "column 0\n" + QString("1\n").repeated(100);
}

void tst_ToolConfigTable::importReplacesTheRows()
{
    QFETCH(QString, target);
    QFETCH(QByteArray, csv);
    QFETCH(QString, printed);

    const ToolResult result = import(target, csv);

    QCOMPARE(result.error, QString());
    QCOMPARE(result.exitCode, 0);
    QCOMPARE(m_device->run("table", {target, "--csv"}).output, printed);
}

void tst_ToolConfigTable::importWritesAndStampsOneFile()
{
    const auto former = m_device->directory().snapshot();

    const ToolResult result = import(url, "4,0,used\n20,99,used\n");

    QVERIFY2(result.output.startsWith("inputs/calibration/table: 4 rows -> 2 rows\n"
                                      "stamped device/inputs/calibration: modifiedBy Device, "),
             qPrintable(result.output));
    QCOMPARE(m_device->changedSince(former), QStringList{"inputs/calibration.config.json"});
    const QJsonObject json = m_device->directory().json("inputs/calibration.config.json");
    QCOMPARE(json.value("modifiedBy").toString(), QString("Device"));
}

void tst_ToolConfigTable::emptyCellIsNothingEntered()
{
    QCOMPARE(import(url, "4,,\n20,99,used\n").exitCode, 0);

    QCOMPARE(
        m_device->run("get", {url, "--json"}).output.contains("[[4, null, null], [20, 99, 0]]"),
        true);
}

void tst_ToolConfigTable::importIsRefused_data()
{
    QTest::addColumn<QString>("target");
    QTest::addColumn<QByteArray>("csv");
    QTest::addColumn<int>("exitCode");
    QTest::addColumn<QString>("reason");
    const QString table = QStringLiteral("texts/table");

    QTest::newRow("ragged") << url << QByteArray("4,0,used\n20,99\n") << 9
                            << "'%1 line 2': 2 cells; the array has 3 columns";
    QTest::newRow("too long") << url << QByteArray("4,0,used,\n20,99,used\n") << 9
                              << "'%1 line 1': 4 cells; the array has 3 columns";
    QTest::newRow("blank line") << url << QByteArray("4,0,used\n\n20,99,used\n") << 9
                                << "'%1 line 2': 1 cells; the array has 3 columns";
    QTest::newRow("other titles") << url << QByteArray("a,b,c\n4,0,used\n20,99,used\n") << 5
                                  << "'%1 line 1, inputs.reference': 'a' is no finite number of "
                                     "type double";
    QTest::newRow("type, in the last row")
        << url << QByteArray("4,0,used\n20,x,used\n") << 5
        << "'%1 line 2, inputs.reading': 'x' is no finite number of type double";
    QTest::newRow("selection") << url << QByteArray("4,0,used\n20,0,perhaps\n") << 5
                               << "'%1 line 2, inputs.pointState': 'perhaps' is none of the "
                                  "selection: used (0), suspect (1), ignored (2)";
    QTest::newRow("range") << table << QByteArray("a,1\nb,256\nc,1\n") << 5
                           << "'%1 line 2, column 1': '256' is no uint8; a whole number from 0 to "
                              "255 is";
    QTest::newRow("limit") << table << QByteArray("a,1\n\"b\nb\",2\nc,10\n") << 5
                           << "'%1 line 4, column 1': 10 is above the upper limit, 9";
    QTest::newRow("too few rows") << url << QByteArray("4,0,used\n") << 5
                                  << "'inputs/calibration/table': takes 2 to 8 rows, not 1";
    QTest::newRow("no rows") << url << QByteArray() << 5
                             << "'inputs/calibration/table': takes 2 to 8 rows, not 0";
    QTest::newRow("too many rows") << url << QByteArray("1,1,0\n").repeated(9) << 5
                                   << "'inputs/calibration/table': takes 2 to 8 rows, not 9";
    QTest::newRow("rows that are not dynamic")
        << table << QByteArray("a,1\nb,2\n") << 5 << "'texts/table': takes exactly 3 rows, not 2";
    QTest::newRow("read-only") << "texts/fixed" << QByteArray("2\n") << 5
                               << "'texts/fixed' is read-only";
    QTest::newRow("open quote") << table << QByteArray("a,1\n\"b,2\nc,3\n") << 9
                                << "%1: line 2: a quote that is never closed";
    QTest::newRow("quote inside") << table << QByteArray("a,1\nb\"b,2\nc,3\n") << 9
                                  << "%1: line 2: a quote inside a cell that does not begin with "
                                     "one";
    QTest::newRow("behind the quote") << table << QByteArray("a,1\n\"b\"b,2\nc,3\n") << 9
                                      << "%1: line 2: text behind the closing quote of a cell";
    QTest::newRow("no UTF-8") << table << QByteArray("a,1\n\xC0\xC0,2\nc,3\n") << 9
                              << "%1: is no UTF-8 text";
    QTest::newRow("cut-off character")
        << table << QByteArray("a,1\nb,2\nc,3\xC2") << 9 << "%1: is no UTF-8 text";
    QTest::newRow("no text") << table << QByteArray("a,1\nb\0,2\nc,3\n", 13) << 9
                             << "%1: is no UTF-8 text";
}

void tst_ToolConfigTable::importIsRefused()
{
    QFETCH(QString, target);
    QFETCH(QByteArray, csv);
    QFETCH(int, exitCode);
    QFETCH(QString, reason);
    const auto former = m_device->directory().snapshot();

    const ToolResult result = import(target, csv);

    VERIFY_REFUSED(result, exitCode, reason.replace("%1", m_file));
    QCOMPARE(m_device->directory().snapshot(), former);
}

void tst_ToolConfigTable::leafThatIsNoArrayIsRefused()
{
    VERIFY_REFUSED(m_device->run("table", {"device/tag"}), 5,
                   "'device/tag': is no array but a string");
}

void tst_ToolConfigTable::missingTargetsAreNotFound()
{
    VERIFY_REFUSED(m_device->run("table", {url, "--import", m_file}), 3, m_file + ": no such file");
    VERIFY_REFUSED(m_device->run("table", {url, "--import", m_elsewhere->path()}), 9,
                   m_elsewhere->path() + ": is a folder; name a CSV file");
    VERIFY_REFUSED(m_device->run("table", {"inputs/nothing/whatsoever/in/this/place"}), 3,
                   m_device->path() + ": no element at 'inputs/nothing/whatsoever/in/this/place'");
}

/// Opens, and fails at the first byte.
void tst_ToolConfigTable::fileThatCannotBeReadIsNoEmptyTable()
{
    const QString unreadable = QStringLiteral("/proc/self/mem");

    VERIFY_REFUSED(m_device->run("table", {"texts/empty", "--import", unreadable}), 9,
                   unreadable + ": cannot be read: " + qt_error_string(EIO));
}

void tst_ToolConfigTable::dryRunOfAnImportWritesNothing()
{
    const auto before = m_device->directory().snapshot();
    const QTemporaryDir folder;
    QFile csv(folder.filePath(QStringLiteral("rows.csv")));
    QVERIFY(csv.open(QIODevice::WriteOnly) && csv.write("4,0,0\n20,99,2\n") > 0);
    csv.close();

    const ToolResult result = m_device->run(
        "table", {"inputs/calibration/table", "--import", csv.fileName(), "--dry-run"});

    QCOMPARE(result.error, QString());
    QCOMPARE(result.output,
             QStringLiteral("inputs/calibration/table: 4 rows -> 2 rows\nnot written to %1\n")
                 .arg(m_device->path(QStringLiteral("inputs/calibration.config.json"))));
    QCOMPARE(result.exitCode, 0);
    QCOMPARE(m_device->changedSince(before), QStringList());
}

void tst_ToolConfigTable::patternPrintsEachTableWithItsUrl()
{
    const QString one = m_device->run("table", {"texts/single"}).output;

    const ToolResult result = m_device->run("table", {"texts/*e"});

    QCOMPARE(result.error, QString());
    const QStringList expected{"texts/single\n" + one,
                               "texts/table\n" + m_device->run("table", {"texts/table"}).output};
    for (const QString &table : expected) {
        QVERIFY2(result.output.contains(table), qPrintable(result.output));
    }
    QCOMPARE(result.output.size(), expected.join('\n').size());
    const auto json = QJsonDocument::fromJson(
        m_device->run("table", {"texts/ope*", "--json"}).output.toUtf8());
    QVERIFY(json.isArray());
    QCOMPARE(json.array().size(), 1);
    QCOMPARE(json.array().at(0).toObject().value("url"), QJsonValue("texts/open"));
    VERIFY_REFUSED(m_device->run("table", {"inputs/*/filter"}), 3,
                   m_device->path() + ": no array at 'inputs/*/filter'");
}

void tst_ToolConfigTable::csvOfSeveralTablesIsRefused()
{
    QCOMPARE(m_device->run("table", {"texts/ope*", "--csv"}).output,
             m_device->run("table", {"texts/open", "--csv"}).output);
    VERIFY_REFUSED(m_device->run("table", {"texts/*e", "--csv"}), 2,
                   QString("config: --csv prints one array, 'texts/*e' names 2; see 'tessel config "
                           "--help'"));
}

void tst_ToolConfigTable::importTakesNoPattern()
{
    const auto before = m_device->directory().snapshot();

    QCOMPARE(import("inputs/*/table", "4,0,0\n").exitCode, 3);

    QCOMPARE(m_device->changedSince(before), QStringList());
}

QTEST_GUILESS_MAIN(tst_ToolConfigTable)
#include "tst_ToolConfigTable.moc"
