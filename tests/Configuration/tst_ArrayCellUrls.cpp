#include "Companion/SelectorUrlArrayIndex.h"
#include "Configuration/ConfigurationAndProcessDataParser.h"
#include "Configuration/ConfigurationAndProcessDataTools.h"
#include "Configuration/ConfigurationDataValue.h"
#include "support/LogCapture.h"
#include "support/RecordingWrapper.h"

#include <QSignalSpy>

namespace {

using Base = ConfigurationAndProcessDataBase;
using Root = Base::BaseClassSharedPointer;
using Tools = ConfigurationAndProcessDataTools;

Root parse(const QByteArray &json, const QString &postfix = QStringLiteral("config.json"))
{
    return ConfigurationAndProcessDataParser().parseFromByteArray(json, postfix);
}

Root parseDevice()
{
    return parse(R"({"type":"treenode","value":{
        "group":{"type":"treenode","value":{
            "table":{"type":"array","value":[[1,2,3],[4,5,6]],
                     "arrayInformation":[[],[{"type":"string","regularExpression":"\\d"},{},{}]]}}},
        "flat":{"type":"array","value":[7,8],"arrayInformation":[[],[{}]]},
        "empty":{"type":"array","value":[],"arrayInformation":[[],[{}]]},
        "cube":{"type":"array","value":[[[1]]],"arrayInformation":[[],[],[]]},
        "bare":{"type":"array","value":[[1]]},
        "scalar":{"type":"array","value":5,"arrayInformation":[]},
        "number":{"type":"int32","value":5},
        "number#0,0":{"type":"string","value":"plain","regularExpression":"[a-z]+"}}})");
}

QByteArray frame(const Root &root)
{
    QByteArray text;
    ConfigurationAndProcessDataParser().frameToByteArray(root, text, QJsonDocument::Compact);
    return text;
}

QVariant valueOf(const Root &root, const QString &url)
{
    return root->getLeafConfigurationData(url)->getValue();
}

QVariantList row(const QVariantList &cells)
{
    return {QVariant(cells)};
}

} // namespace

class tst_ArrayCellUrls : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();

    void cellIsRead_data();
    void cellIsRead();
    void missingCellIsReported_data();
    void missingCellIsReported();
    void urlWithoutCellGivesNothing_data();
    void urlWithoutCellGivesNothing();
    void plainUrlEndsSilently_data();
    void plainUrlEndsSilently();
    void elementOfAnotherTypeHasNoCells();
    void missingElementHasNoCells();
    void nothingEnteredComesBackFromACell();
    void leafWithAnIndexInItsKeyIsFound();

    void cellIsWritten();
    void storedCellAgainIsUnchanged();
    void signalsSpeakOfTheWholeArray();
    void flatArrayBecomesAColumn();
    void patternOfAColumnIsNotApplied();
    void informationIsNotWritten();
    void formWithoutSignalsKnowsNoCells();
    void refusedCellLeavesTheArray_data();
    void refusedCellLeavesTheArray();
    void nullRootHasNoCells();
    void processArrayCanBeReadButNotWritten();

    void handleIsLoaded();
    void handleOfANullRootIsLeftAlone();
    void handleOfAPlainUrlIsLeftAlone();
    void handleHasNoDynamicRows();

private:
    Root m_root;
    QByteArray m_text;
};

void tst_ArrayCellUrls::init()
{
    m_root = parseDevice();
    m_text = frame(m_root);
    RecordingTable::takeCalls();
}

void tst_ArrayCellUrls::cleanup()
{
    m_root.clear();
}

void tst_ArrayCellUrls::cellIsRead_data()
{
    QTest::addColumn<QString>("url");
    QTest::addColumn<QVariant>("cell");

    QTest::newRow("first") << "group/table#0,0" << QVariant(1);
    QTest::newRow("last") << "group/table#1,2" << QVariant(6);
    QTest::newRow("slashes around") << "/group//table#0,1" << QVariant(2);
    QTest::newRow("flat") << "flat#1,0" << QVariant(8);
}

void tst_ArrayCellUrls::cellIsRead()
{
    QFETCH(QString, url);
    QFETCH(QVariant, cell);
    LogCapture log;

    QCOMPARE(Tools::extractConfigValueWithArrayIndexUrl(url, m_root), cell);
    QCOMPARE(Tools::extractConfigValue(url, m_root), cell);

    COMPARE_LOG(log);
}

void tst_ArrayCellUrls::missingCellIsReported_data()
{
    QTest::addColumn<QString>("url");
    QTest::addColumn<QString>("message");

    const QString badRow = "Row index out of bounds or empty row detected";
    QTest::newRow("row past the end") << "group/table#2,0" << badRow;
    QTest::newRow("column past the end") << "group/table#1,3"
                                         << "Column index out of bounds 3 4";
    QTest::newRow("largest indices") << "group/table#4294967295,4294967295" << badRow;
    QTest::newRow("largest column") << "group/table#0,4294967295"
                                    << "Column index out of bounds 3 4294967296";
    QTest::newRow("second column of a flat array") << "flat#0,1"
                                                   << "Column index out of bounds 1 2";
    QTest::newRow("no cells") << "empty#0,0" << badRow;
    QTest::newRow("cube") << "cube#0,0" << badRow;
}

void tst_ArrayCellUrls::missingCellIsReported()
{
    QFETCH(QString, url);
    QFETCH(QString, message);
    LogCapture log;

    QVERIFY(!Tools::extractConfigValueWithArrayIndexUrl(url, m_root).isValid());
    COMPARE_LOG(log, warning(message));
    QVERIFY(!Tools::extractConfigValue(url, m_root).isValid());
    COMPARE_LOG(log, warning(message));
}

void tst_ArrayCellUrls::urlWithoutCellGivesNothing_data()
{
    QTest::addColumn<QString>("url");

    QTest::newRow("array without information") << "bare#0,0";
    QTest::newRow("array without a list") << "scalar#0,0";
    QTest::newRow("number") << "number#1,1";
    QTest::newRow("tree node") << "group#0,0";
    QTest::newRow("plain") << "number";
    QTest::newRow("index without column") << "flat#0";
    QTest::newRow("nothing before the index") << "#0,0";
}

void tst_ArrayCellUrls::urlWithoutCellGivesNothing()
{
    QFETCH(QString, url);
    LogCapture log;

    QVERIFY(!Tools::extractConfigValueWithArrayIndexUrl(url, m_root).isValid());
    QCOMPARE(Tools::setConfigValueWithArrayIndexUrl(url, m_root, 9), Base::SetValueTargetMissing);

    COMPARE_LOG(log);
    QCOMPARE(frame(m_root), m_text);
}

void tst_ArrayCellUrls::plainUrlEndsSilently_data()
{
    QTest::addColumn<QString>("url");

    QTest::newRow("leaf") << "number";
    QTest::newRow("array") << "group/table";
    QTest::newRow("nowhere") << "nowhere";
    QTest::newRow("past a leaf") << "number/a";
    QTest::newRow("empty") << "";
}

void tst_ArrayCellUrls::plainUrlEndsSilently()
{
    QFETCH(QString, url);
    Array2dDataTypeWrapper wrapper{QVariantList(), QVariantList()};
    SelectorUrlArrayIndex index;
    QString urlWithoutIndex;
    LogCapture log;

    QVERIFY(!Tools::fetchArrayHandleWithIndexes(url, m_root, wrapper, urlWithoutIndex, index));
    QVERIFY(!Tools::extractConfigValueWithArrayIndexUrl(url, m_root).isValid());
    QCOMPARE(Tools::setConfigValueWithArrayIndexUrl(url, m_root, 9), Base::SetValueTargetMissing);

    COMPARE_LOG(log);
    QVERIFY(!index.isValid());
    QCOMPARE(frame(m_root), m_text);
}

void tst_ArrayCellUrls::elementOfAnotherTypeHasNoCells()
{
    LogCapture log;

    QVERIFY(!Tools::extractConfigValue("number#1,1", m_root).isValid());
    QCOMPARE(Tools::setConfigValueWithStatus("number#1,1", m_root, 9), Base::SetValueTargetMissing);
    QVERIFY(!Tools::setConfigValue("group/table/a#1,1", m_root, 9));

    // The look-up of the type comes first, then that of the whole URL; only a URL past a leaf is
    // worth a line there.
    COMPARE_LOG(log, warning(R"(Wrong URL: "a")"), warning(R"(Leaf url not value "group/table/a")"),
                warning(R"(Data Type Property of url "group/table/a" invalid)"),
                warning(R"(Wrong URL: "a#1,1")"));
    QCOMPARE(frame(m_root), m_text);
}

void tst_ArrayCellUrls::missingElementHasNoCells()
{
    LogCapture log;

    QVERIFY(!Tools::extractConfigValueWithArrayIndexUrl("nowhere#0,0", m_root).isValid());

    COMPARE_LOG(log, warning(R"(Leaf url not value "nowhere")"),
                warning(R"(Data Type Property of url "nowhere" invalid)"));
}

void tst_ArrayCellUrls::nothingEnteredComesBackFromACell()
{
    const QVariant nothing(QVariant::Int);
    QCOMPARE(Tools::setConfigValueWithStatus("group/table#0,0", m_root, nothing),
             Base::SetValueChanged);
    LogCapture log;

    const QVariant cell = Tools::extractConfigValue("group/table#0,0", m_root);

    COMPARE_LOG(log);
    QVERIFY(cell.isValid());
    QVERIFY(cell.isNull());
    QCOMPARE(cell.type(), QVariant::Int);
}

void tst_ArrayCellUrls::leafWithAnIndexInItsKeyIsFound()
{
    LogCapture log;

    QCOMPARE(Tools::extractConfigValue("number#0,0", m_root), QVariant("plain"));
    QVERIFY(Tools::setConfigValue("number#0,0", m_root, "text"));
    QCOMPARE(valueOf(m_root, "number#0,0"), QVariant("text"));
    COMPARE_LOG(log);
    // It is a leaf like any other.
    QCOMPARE(Tools::setConfigValueWithStatus("number#0,0", m_root, "9"),
             Base::SetValueRegularExpressionMismatch);
    COMPARE_LOG(log, warning(R"(Regular expression mismatch in configuration "number#0,0" with )"
                             R"(data "9")"));
}

void tst_ArrayCellUrls::cellIsWritten()
{
    LogCapture log;

    QCOMPARE(Tools::setConfigValueWithArrayIndexUrl("group/table#1,1", m_root, "new"),
             Base::SetValueChanged);
    QCOMPARE(valueOf(m_root, "group/table"), QVariant(row({1, 2, 3}) + row({4, "new", 6})));
    QCOMPARE(Tools::setConfigValueWithStatus("/group/table#0,2", m_root, QVariantMap{{"a", 1}}),
             Base::SetValueChanged);
    QVERIFY(Tools::setConfigValue("group/table#0,0", m_root, 9));

    COMPARE_LOG(log);
    QCOMPARE(valueOf(m_root, "group/table"),
             QVariant(row({9, 2, QVariantMap{{"a", 1}}}) + row({4, "new", 6})));
}

void tst_ArrayCellUrls::storedCellAgainIsUnchanged()
{
    QSignalSpy valueChanged(m_root->getLeafConfigurationData("group/table").data(),
                            &ConfigurationDataValue::valueChanged);

    QCOMPARE(Tools::setConfigValueWithArrayIndexUrl("group/table#1,1", m_root, 5),
             Base::SetValueUnchanged);
    QVERIFY(Tools::setConfigValue("group/table#1,1", m_root, 5));

    QCOMPARE(valueChanged.count(), 0);
    QCOMPARE(frame(m_root), m_text);
}

void tst_ArrayCellUrls::signalsSpeakOfTheWholeArray()
{
    const auto leaf = m_root->getLeafConfigurationData("group/table");
    QSignalSpy propertyChanged(
        leaf.data(), QOverload<const QString &, const QVariant &>::of(&Base::propertyChanged));
    QSignalSpy valueChanged(leaf.data(), &ConfigurationDataValue::valueChanged);
    QSignalSpy rootChanged(m_root.data(), QOverload<>::of(&Base::propertyChanged));

    QVERIFY(Tools::setConfigValue("group/table#1,1", m_root, 0));

    const QVariant whole(row({1, 2, 3}) + row({4, 0, 6}));
    QCOMPARE(valueChanged.count(), 1);
    QCOMPARE(valueChanged.at(0).at(0), whole);
    QCOMPARE(propertyChanged.count(), 1);
    QCOMPARE(propertyChanged.at(0), QVariantList({"value", whole}));
    QCOMPARE(rootChanged.count(), 1);
}

void tst_ArrayCellUrls::flatArrayBecomesAColumn()
{
    QCOMPARE(Tools::setConfigValueWithStatus("flat#1,0", m_root, 9), Base::SetValueChanged);
    QCOMPARE(valueOf(m_root, "flat"), QVariant(row({7}) + row({9})));
    QCOMPARE(Tools::extractConfigValue("flat#1,0", m_root), QVariant(9));

    // Also where the cell itself stays what it was.
    m_root = parseDevice();
    QCOMPARE(Tools::setConfigValueWithStatus("flat#0,0", m_root, 7), Base::SetValueChanged);
    QCOMPARE(valueOf(m_root, "flat"), QVariant(row({7}) + row({8})));
    QCOMPARE(Tools::setConfigValueWithStatus("flat#0,0", m_root, 7), Base::SetValueUnchanged);
}

void tst_ArrayCellUrls::patternOfAColumnIsNotApplied()
{
    m_root->getLeaf(QString("group/table"))->addProperty("regularExpression", "x");
    LogCapture log;

    QCOMPARE(Tools::setConfigValueWithStatus("group/table#0,0", m_root, "no digit"),
             Base::SetValueChanged);

    COMPARE_LOG(log);
    QCOMPARE(Tools::extractConfigValue("group/table#0,0", m_root), QVariant("no digit"));
}

void tst_ArrayCellUrls::informationIsNotWritten()
{
    const auto leaf = m_root->getLeafConfigurationData("flat");
    const QVariant before = leaf->getProperty("arrayInformation");

    QVERIFY(Tools::setConfigValue("flat#0,0", m_root, 9));

    QCOMPARE(leaf->getProperty("arrayInformation"), before);
}

void tst_ArrayCellUrls::formWithoutSignalsKnowsNoCells()
{
    LogCapture log;

    QVERIFY(!Tools::setConfigValueNoSignalEmit("group/table#0,0", m_root, 9));
    QCOMPARE(Tools::setConfigValueNoSignalEmitWithStatus("group/table#0,0", m_root, 9),
             Base::SetValueTargetMissing);

    COMPARE_LOG(log);
    QCOMPARE(frame(m_root), m_text);
}

void tst_ArrayCellUrls::refusedCellLeavesTheArray_data()
{
    QTest::addColumn<QString>("url");
    QTest::addColumn<QString>("message");

    const QString badRow =
        "Destination row is empty, row number given %1 ,max row numbers in array %2";
    QTest::newRow("column past the end")
        << "group/table#1,3"
        << "No valid column selections given given (columnOffset) 3 (numberOfColumns) 1 given "
           "number of columns in source 1 matrix type is 2 x 3";
    QTest::newRow("row past the end") << "group/table#2,0" << badRow.arg(2).arg(2);
    QTest::newRow("no cells") << "empty#0,0" << badRow.arg(0).arg(0);
    QTest::newRow("cube") << "cube#0,0" << badRow.arg(0).arg(1);
}

void tst_ArrayCellUrls::refusedCellLeavesTheArray()
{
    QFETCH(QString, url);
    QFETCH(QString, message);
    LogCapture log;

    QCOMPARE(Tools::setConfigValueWithArrayIndexUrl(url, m_root, 9), Base::SetValueTargetMissing);
    COMPARE_LOG(log, warning(message));
    QCOMPARE(Tools::setConfigValueWithStatus(url, m_root, 9), Base::SetValueTargetMissing);
    COMPARE_LOG(log, warning(message));
    QVERIFY(!Tools::setConfigValue(url, m_root, 9));

    QCOMPARE(frame(m_root), m_text);
}

void tst_ArrayCellUrls::nullRootHasNoCells()
{
    LogCapture log;

    QVERIFY(!Tools::extractConfigValueWithArrayIndexUrl("flat#0,0", {}).isValid());
    QCOMPARE(Tools::setConfigValueWithArrayIndexUrl("flat#0,0", {}, 9),
             Base::SetValueTargetMissing);

    COMPARE_LOG(log);
}

void tst_ArrayCellUrls::processArrayCanBeReadButNotWritten()
{
    const Root process = parse(R"({"type":"treenode","value":{
        "table":{"type":"array","value":[[1]],"arrayInformation":[[],[{}]]}}})",
                               "process.json");
    const QByteArray text = frame(process);
    LogCapture log;

    QCOMPARE(Tools::extractConfigValue("table#0,0", process), QVariant(1));
    QCOMPARE(Tools::setConfigValueWithStatus("table#0,0", process, 2), Base::SetValueTargetMissing);

    COMPARE_LOG(log);
    QCOMPARE(frame(process), text);
}

void tst_ArrayCellUrls::handleIsLoaded()
{
    RecordingTable wrapper{QVariantList(), QVariantList()};
    SelectorUrlArrayIndex index;
    QString urlWithoutIndex;
    LogCapture log;

    QVERIFY(Tools::fetchArrayHandleWithIndexes("/group/table#1,2", m_root, wrapper, urlWithoutIndex,
                                               index));

    COMPARE_LOG(log);
    QCOMPARE(wrapper.takeCalls(), QStringList({"resetRootObject(root, /group/table)",
                                               "resetLeaf(leaf)", "reset(values, info)"}));
    QCOMPARE(urlWithoutIndex, QString("/group/table"));
    QVERIFY(index.isValid());
    QCOMPARE(index.getRowIndex(), 1U);
    QCOMPARE(index.getColumnIndex(), 2U);
    QCOMPARE(wrapper.getNumberOfRows(), 2U);
    QCOMPARE(wrapper.setArrayCellsWithStatus(), Base::SetValueUnchanged);
    // An index past the end is no matter of the handle, an array without information is.
    QVERIFY(
        Tools::fetchArrayHandleWithIndexes("flat#9,9", m_root, wrapper, urlWithoutIndex, index));
    QVERIFY(
        !Tools::fetchArrayHandleWithIndexes("bare#0,0", m_root, wrapper, urlWithoutIndex, index));
}

void tst_ArrayCellUrls::handleOfANullRootIsLeftAlone()
{
    RecordingTable wrapper{QVariantList(), QVariantList()};
    SelectorUrlArrayIndex index;
    QString urlWithoutIndex = "before";

    QVERIFY(!Tools::fetchArrayHandleWithIndexes("flat#0,0", {}, wrapper, urlWithoutIndex, index));

    QCOMPARE(wrapper.takeCalls(), QStringList());
    QCOMPARE(urlWithoutIndex, QString("before"));
    QVERIFY(!index.isValid());
}

void tst_ArrayCellUrls::handleOfAPlainUrlIsLeftAlone()
{
    RecordingTable wrapper{QVariantList(), QVariantList()};
    SelectorUrlArrayIndex index;
    QString urlWithoutIndex;

    QVERIFY(!Tools::fetchArrayHandleWithIndexes("flat", m_root, wrapper, urlWithoutIndex, index));
    QCOMPARE(urlWithoutIndex, QString("flat"));
    QVERIFY(
        !Tools::fetchArrayHandleWithIndexes("number#1,1", m_root, wrapper, urlWithoutIndex, index));
    QCOMPARE(urlWithoutIndex, QString("number"));

    QCOMPARE(wrapper.takeCalls(), QStringList());
}

void tst_ArrayCellUrls::handleHasNoDynamicRows()
{
    m_root->getLeaf(QString("flat"))->addProperty("arrayHasDynamicRows", true);
    Array2dDataTypeWrapper wrapper{QVariantList(), QVariantList()};
    SelectorUrlArrayIndex index;
    QString urlWithoutIndex;

    QVERIFY(
        Tools::fetchArrayHandleWithIndexes("flat#0,0", m_root, wrapper, urlWithoutIndex, index));

    QVERIFY(!wrapper.isDynamicArray());
}

QTEST_GUILESS_MAIN(tst_ArrayCellUrls)

#include "tst_ArrayCellUrls.moc"
