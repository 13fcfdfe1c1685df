#include "Configuration/ConfigurationAndProcessDataParser.h"
#include "Configuration/ConfigurationArray2dDataTypeWrapper.h"
#include "Configuration/ConfigurationDataValue.h"
#include "support/LogCapture.h"
#include "support/NestedLists.h"

namespace {

using Base = ConfigurationAndProcessDataBase;
using Root = Base::BaseClassSharedPointer;
using Sizes = QVector<unsigned int>;

QVariantList matrix()
{
    return nested({{1, 2, 3}, {4, 5, 6}});
}

Root parseLeaf(const QByteArray &json)
{
    return ConfigurationAndProcessDataParser().parseFromByteArray(json, "config.json");
}

Root parseDevice()
{
    return parseLeaf(R"({"type":"treenode","value":{
        "table":{"type":"array","value":[[1,2],[3,4]],"arrayInformation":[[],[{},{}]]},
        "flat":{"type":"array","value":[7,8],"arrayInformation":[[],[{}]]},
        "dynamic":{"type":"array","value":[[1]],"arrayInformation":[[],[{}]],
                   "arrayHasDynamicRows":true,"arrayMinRows":2,"arrayMaxRows":6},
        "static":{"type":"array","value":[[1]],"arrayInformation":[[],[{}]],
                  "arrayHasDynamicRows":false,"arrayMinRows":1,"arrayMaxRows":5},
        "number":{"type":"int32","value":5,"arrayHasDynamicRows":true,"arrayMaxRows":3}}})");
}

/// A table that lets the test see what it is bound to.
class OpenTable : public Array2dDataTypeWrapper
{
public:
    using Array2dDataTypeWrapper::Array2dDataTypeWrapper;
    using ArrayDataTypeWrapper::m_leafUrl;
    using ArrayDataTypeWrapper::m_rootObject;
};

} // namespace

class tst_TableLoading : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();
    void flatListBecomesAColumn();
    void flatListIsResetToAColumn();
    void otherShapesStayAsTheyAre_data();
    void otherShapesStayAsTheyAre();
    void tableOfALeafIsBoundToNothing();
    void nullLeafMakesAnEmptyTable();
    void tableOfARootIsBoundToIt();
    void nullRootMakesAnEmptyTable();
    void tableWithBoundsIsEmptyUntilItIsReset();
    void newTableIsNotDynamic();
    void loadSucceedsWithAnyLeaf();
    void loadFailsWithoutLeaf();
    void urlPastALeafIsLookedUpTwice();
    void ownRootCanBeLoadedAgain();
    void dynamicRowsAreTakenFromTheLeaf();
    void boundsAreTakenAlsoWithoutDynamicRows();
    void leafWithoutTheMarkLeavesTheFields();
    void onlyWhatConvertsIsTaken();
    void nullLeafLeavesTheFields();
    void otherLoadsLeaveTheFields();

private:
    Root m_root;
};

void tst_TableLoading::init()
{
    m_root = parseDevice();
}

void tst_TableLoading::cleanup()
{
    m_root.clear();
}

void tst_TableLoading::flatListBecomesAColumn()
{
    LogCapture log;

    const Array2dDataTypeWrapper table({7, 8}, columnInfo({QVariantMap()}));

    QCOMPARE(table.getNumberOfRows(), 2U);
    QCOMPARE(table.getNumberOfColumns(), 1U);
    QCOMPARE(table.getCellValue(1, 0), QVariant(8));
    QCOMPARE(table.getArrayValueContent(), nested({{7}, {8}}));
    QCOMPARE(table.getArrayInfo(1).size(), 1);
    COMPARE_LOG(log);
}

void tst_TableLoading::flatListIsResetToAColumn()
{
    Array2dDataTypeWrapper table(matrix(), {});

    QVERIFY(table.reset(QVariantList{"a", QVariantMap{{"b", 1}}, QVariant()}, columnInfo({1})));

    QCOMPARE(table.getArrayValueContent(), nested({{"a"}, {QVariantMap{{"b", 1}}}, {QVariant()}}));
    QCOMPARE(table.getArrayType(), Sizes({3, 1}));
    QCOMPARE(table.getArrayInfo(1), QVariantList{1});
    const auto leaf = Array2dDataTypeWrapper(m_root->getLeaf(QString("flat")));
    QCOMPARE(leaf.getArrayValueContent(), nested({{7}, {8}}));
}

void tst_TableLoading::otherShapesStayAsTheyAre_data()
{
    QTest::addColumn<QVariantList>("values");
    QTest::addColumn<Sizes>("sizes");

    QTest::newRow("nothing") << QVariantList() << Sizes();
    QTest::newRow("matrix") << matrix() << Sizes{2, 3};
    QTest::newRow("one empty row") << nested({{}}) << Sizes{1, 0};
    QTest::newRow("cube") << nested({nested({{1}, {2}})}) << Sizes{1, 2, 1};
}

void tst_TableLoading::otherShapesStayAsTheyAre()
{
    QFETCH(QVariantList, values);
    QFETCH(Sizes, sizes);

    const Array2dDataTypeWrapper made(values, {});
    Array2dDataTypeWrapper reset({5}, {});
    QVERIFY(reset.reset(values, QVariantList()));

    QCOMPARE(made.getArrayValueContent(), values);
    QCOMPARE(made.getArrayType(), sizes);
    QCOMPARE(reset.getArrayValueContent(), values);
    QCOMPARE(reset.getArrayType(), sizes);
}

void tst_TableLoading::tableOfALeafIsBoundToNothing()
{
    OpenTable table(m_root->getLeaf(QString("dynamic")));

    QCOMPARE(table.getCellValue(0, 0), QVariant(1));
    QVERIFY(table.isDynamicArray());
    QCOMPARE(table.getMinNumberOfRows(), 2U);
    QCOMPARE(table.getMaxNumberOfRows(), 6U);
    QVERIFY(table.m_rootObject.isNull());
    QVERIFY(table.m_leafUrl.isEmpty());
    QCOMPARE(table.setArrayCellsWithStatus(), Base::SetValueTargetMissing);
    QCOMPARE(table.setArrayInfoWithStatus(m_root, "dynamic"), Base::SetValueUnchanged);
}

void tst_TableLoading::nullLeafMakesAnEmptyTable()
{
    LogCapture log;

    const OpenTable table{Root()};

    COMPARE_LOG(log);
    QVERIFY(!table);
    QVERIFY(!table.isDynamicArray());
    QVERIFY(table.m_rootObject.isNull());
}

void tst_TableLoading::tableOfARootIsBoundToIt()
{
    OpenTable table(m_root, "dynamic");

    QCOMPARE(table.getArrayType(), Sizes({1, 1}));
    QVERIFY(table.isDynamicArray());
    QCOMPARE(table.getMaxNumberOfRows(), 6U);
    QCOMPARE(table.m_rootObject, m_root);
    QCOMPARE(table.m_leafUrl, QString("dynamic"));
    QCOMPARE(table.setArrayCellsWithStatus(), Base::SetValueUnchanged);
}

void tst_TableLoading::nullRootMakesAnEmptyTable()
{
    LogCapture log;

    const OpenTable table(Root(), "table");

    COMPARE_LOG(log);
    QVERIFY(!table);
    QVERIFY(table.m_rootObject.isNull());
    QCOMPARE(table.m_leafUrl, QString("table"));
}

void tst_TableLoading::tableWithBoundsIsEmptyUntilItIsReset()
{
    Array2dDataTypeWrapper table(matrix(), columnInfo({1, 2, 3}), 1, 4);

    QCOMPARE(table.getNumberOfRows(), 0U);
    QVERIFY(table.getArrayInfo(1).isEmpty());
    QVERIFY(table.isDynamicArray());
    QCOMPARE(table.getMinNumberOfRows(), 1U);
    QCOMPARE(table.getMaxNumberOfRows(), 4U);

    QVERIFY(table.reset(matrix(), columnInfo({1, 2, 3})));
    QCOMPARE(table.getNumberOfRows(), 2U);
    QVERIFY(table.isDynamicArray());
    QCOMPARE(table.getMaxNumberOfRows(), 4U);
}

void tst_TableLoading::newTableIsNotDynamic()
{
    const Array2dDataTypeWrapper table(matrix(), {});

    QVERIFY(!table.isDynamicArray());
    QCOMPARE(table.getMinNumberOfRows(), 0U);
    QCOMPARE(table.getMaxNumberOfRows(), 0U);
}

void tst_TableLoading::loadSucceedsWithAnyLeaf()
{
    OpenTable table(matrix(), {});

    QVERIFY(table.reset(m_root, "number"));

    QCOMPARE(table.getArrayValueContent(), matrix());
    QVERIFY(table.isDynamicArray());
    QCOMPARE(table.getMaxNumberOfRows(), 3U);
    QCOMPARE(table.m_rootObject, m_root);
    QCOMPARE(table.m_leafUrl, QString("number"));
}

void tst_TableLoading::loadFailsWithoutLeaf()
{
    OpenTable table(m_root, "dynamic");
    LogCapture log;

    QVERIFY(!table.reset(m_root, "nowhere"));
    QCOMPARE(table.m_rootObject, m_root);
    QCOMPARE(table.m_leafUrl, QString("nowhere"));
    QVERIFY(!table.reset(Root(), "table"));
    QVERIFY(table.m_rootObject.isNull());
    QCOMPARE(table.m_leafUrl, QString("table"));

    COMPARE_LOG(log);
    QCOMPARE(table.getArrayType(), Sizes({1, 1}));
    QVERIFY(table.isDynamicArray());
}

void tst_TableLoading::urlPastALeafIsLookedUpTwice()
{
    Array2dDataTypeWrapper table(matrix(), {});
    LogCapture log;

    QVERIFY(!table.reset(m_root, "table/0"));

    COMPARE_LOG(log, warning(R"(Wrong URL: "0")"), warning(R"(Wrong URL: "0")"));
}

void tst_TableLoading::ownRootCanBeLoadedAgain()
{
    OpenTable table(m_root, "table");
    m_root->getLeafConfigurationData("table")->setValue(QVariantList{8});

    QVERIFY(table.reset(table.m_rootObject, table.m_leafUrl));

    QCOMPARE(table.m_rootObject, m_root);
    QCOMPARE(table.getArrayValueContent(), nested({{8}}));
}

void tst_TableLoading::dynamicRowsAreTakenFromTheLeaf()
{
    Array2dDataTypeWrapper table(matrix(), {});

    table.extractDynamicArraysProperties(m_root->getLeaf(QString("dynamic")));

    QVERIFY(table.isDynamicArray());
    QCOMPARE(table.getMinNumberOfRows(), 2U);
    QCOMPARE(table.getMaxNumberOfRows(), 6U);
    QCOMPARE(table.getArrayValueContent(), matrix());
}

void tst_TableLoading::boundsAreTakenAlsoWithoutDynamicRows()
{
    const Array2dDataTypeWrapper table(m_root, "static");

    QVERIFY(!table.isDynamicArray());
    QCOMPARE(table.getMinNumberOfRows(), 1U);
    QCOMPARE(table.getMaxNumberOfRows(), 5U);
}

void tst_TableLoading::leafWithoutTheMarkLeavesTheFields()
{
    const Root leaf = parseLeaf(R"({"type":"array","value":[[1]],"arrayInformation":[],
                                    "arrayMinRows":7,"arrayMaxRows":8})");
    Array2dDataTypeWrapper table({}, {}, 3, 9);

    table.extractDynamicArraysProperties(leaf);

    QVERIFY(table.isDynamicArray());
    QCOMPARE(table.getMinNumberOfRows(), 3U);
    QCOMPARE(table.getMaxNumberOfRows(), 9U);
}

void tst_TableLoading::onlyWhatConvertsIsTaken()
{
    Array2dDataTypeWrapper table({}, {}, 3, 9);

    table.extractDynamicArraysProperties(
        parseLeaf(R"({"type":"array","arrayHasDynamicRows":{},"arrayMaxRows":[]})"));
    QVERIFY(table.isDynamicArray());
    QCOMPARE(table.getMinNumberOfRows(), 3U);
    QCOMPARE(table.getMaxNumberOfRows(), 9U);

    table.extractDynamicArraysProperties(
        parseLeaf(R"({"type":"array","arrayHasDynamicRows":0,"arrayMaxRows":"12"})"));
    QVERIFY(!table.isDynamicArray());
    QCOMPARE(table.getMinNumberOfRows(), 3U);
    QCOMPARE(table.getMaxNumberOfRows(), 12U);
}

void tst_TableLoading::nullLeafLeavesTheFields()
{
    Array2dDataTypeWrapper table({}, {}, 3, 9);

    table.extractDynamicArraysProperties({});

    QVERIFY(table.isDynamicArray());
    QCOMPARE(table.getMaxNumberOfRows(), 9U);
}

void tst_TableLoading::otherLoadsLeaveTheFields()
{
    Array2dDataTypeWrapper table(matrix(), {});

    QVERIFY(table.resetLeaf(m_root->getLeaf(QString("dynamic"))));
    QVERIFY(!table.isDynamicArray());
    QVERIFY(table.resetRootObject(m_root, "dynamic"));
    QVERIFY(!table.isDynamicArray());
    QCOMPARE(table.getMaxNumberOfRows(), 0U);
    table.reset(m_root, "dynamic");
    QVERIFY(table.resetRootObject(m_root, "table"));
    QVERIFY(table.reset(matrix(), QVariantList()));

    QVERIFY(table.isDynamicArray());
    QCOMPARE(table.getMinNumberOfRows(), 2U);
    QCOMPARE(table.getMaxNumberOfRows(), 6U);
}

QTEST_GUILESS_MAIN(tst_TableLoading)

#include "tst_TableLoading.moc"
