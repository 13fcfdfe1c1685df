#include "Configuration/ConfigurationAndProcessDataParser.h"
#include "Configuration/ConfigurationAndProcessDataTreeNode.h"
#include "Configuration/ConfigurationArrayDataTypeWrapper.h"
#include "Configuration/ConfigurationDataValue.h"
#include "support/LogCapture.h"

#include <QSignalSpy>

namespace {

using Base = ConfigurationAndProcessDataBase;
using Root = Base::BaseClassSharedPointer;
using Navigator = QVector<unsigned int>;

Root parseDevice()
{
    return ConfigurationAndProcessDataParser().parseFromByteArray(
        R"({"type":"treenode","value":{
            "table":{"type":"array","value":[[1,2],[3,4]],
                     "arrayInformation":[[],[{"unitType":"K"},{"unitType":"bar"}]]},
            "bare":{"type":"array","value":[5,6]},
            "number":{"type":"int32","value":5,"arrayInformation":[[]]},
            "patterned":{"type":"string","value":"12","regularExpression":"\\d+",
                         "arrayInformation":[["old"]]},
            "texts":{"type":"array","value":["a"],"arrayInformation":"no list"},
            "group":{"type":"treenode","value":{}}}})",
        "config.json");
}

QByteArray frame(const Root &root)
{
    LogCapture emptyNodes;
    QByteArray text;
    ConfigurationAndProcessDataParser().frameToByteArray(root, text, QJsonDocument::Compact);
    return text;
}

/// A wrapper that lets the test see what it is bound to.
class OpenWrapper : public ArrayDataTypeWrapper
{
public:
    OpenWrapper() : ArrayDataTypeWrapper({}, {}) { }

    using ArrayDataTypeWrapper::m_arrayInfo;
    using ArrayDataTypeWrapper::m_arrayValueContent;
    using ArrayDataTypeWrapper::m_leafUrl;
    using ArrayDataTypeWrapper::m_rootObject;
};

} // namespace

class tst_ArrayWrapperTree : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();

    void newWrapperIsBoundToNothing();
    void leafIsLoaded();
    void leafThatIsNoArrayLeavesTheLists_data();
    void leafThatIsNoArrayLeavesTheLists();
    void leafReleasesTheRoot_data();
    void leafReleasesTheRoot();
    void anyLeafWithBothListsIsAnArray();
    void rootIsLoadedAndKept();
    void nullRootKeepsTheFormerOne();
    void failedLoadBindsInNameOnly();
    void ownRootCanBeLoadedAgain();
    void changeOfTheLeafIsNotSeen();

    void informationIsWrittenWithoutSignals();
    void unchangedInformationIsASuccess();
    void informationNeedsATarget();
    void informationNeedsAPropertyThatIsThere();
    void cellsAreWrittenWithSignals();
    void unchangedCellsAreASuccess();
    void cellsOfADetachedWrapperHaveNoTarget();
    void cellsNeedAUrl();
    void cellsPassThePattern();
    void totalWritesCellsThenInformation();
    void totalStopsWhereTheLeafHasGone();
    void refusedCellsDoNotHoldTheInformationBack();
    void unchangedCellsDoNotHoldTheInformationBack();
    void informationDecidesTheTotal();

private:
    Root m_root;
    QByteArray m_text;
};

void tst_ArrayWrapperTree::init()
{
    m_root = parseDevice();
    m_text = frame(m_root);
}

void tst_ArrayWrapperTree::cleanup()
{
    m_root.clear();
}

void tst_ArrayWrapperTree::newWrapperIsBoundToNothing()
{
    const OpenWrapper wrapper;

    QVERIFY(wrapper.m_rootObject.isNull());
    QVERIFY(wrapper.m_leafUrl.isEmpty());
}

void tst_ArrayWrapperTree::leafIsLoaded()
{
    OpenWrapper wrapper;
    LogCapture log;

    QVERIFY(wrapper.resetLeaf(m_root->getLeaf(QString("table"))));

    COMPARE_LOG(log);
    QCOMPARE(wrapper.getArrayType(), Navigator({2, 2}));
    QCOMPARE(wrapper.getCellValue({1, 0}), QVariant(3));
    QCOMPARE(wrapper.getArrayInfo(1, "unitType"), QVariantList({"K", "bar"}));
    QVERIFY(wrapper.m_rootObject.isNull());
    QVERIFY(wrapper.m_leafUrl.isEmpty());
}

void tst_ArrayWrapperTree::leafThatIsNoArrayLeavesTheLists_data()
{
    QTest::addColumn<QString>("url");

    QTest::newRow("null") << "nowhere";
    QTest::newRow("without information") << "bare";
    QTest::newRow("without a list") << "number";
    QTest::newRow("information that is no list") << "texts";
    QTest::newRow("tree node") << "group";
}

void tst_ArrayWrapperTree::leafThatIsNoArrayLeavesTheLists()
{
    QFETCH(QString, url);
    OpenWrapper wrapper;
    wrapper.resetRootObject(m_root, "table");
    LogCapture log;

    QVERIFY(!wrapper.resetLeaf(m_root->getLeaf(url)));

    COMPARE_LOG(log);
    QCOMPARE(wrapper.getCellValue({1, 1}), QVariant(4));
    QCOMPARE(wrapper.getArrayInfo(1, "unitType"), QVariantList({"K", "bar"}));
    QVERIFY(wrapper.m_rootObject.isNull());
    QCOMPARE(wrapper.m_leafUrl, QString("table"));
}

void tst_ArrayWrapperTree::leafReleasesTheRoot_data()
{
    QTest::addColumn<QString>("url");

    QTest::newRow("array") << "table";
    QTest::newRow("null") << "nowhere";
}

void tst_ArrayWrapperTree::leafReleasesTheRoot()
{
    QFETCH(QString, url);
    OpenWrapper wrapper;
    wrapper.resetRootObject(m_root, "table");

    wrapper.resetLeaf(m_root->getLeaf(url));

    QVERIFY(wrapper.m_rootObject.isNull());
    QCOMPARE(wrapper.m_leafUrl, QString("table"));
    QCOMPARE(wrapper.setArrayCellsWithStatus(), Base::SetValueTargetMissing);
}

void tst_ArrayWrapperTree::anyLeafWithBothListsIsAnArray()
{
    const auto leaf = QSharedPointer<ConfigurationDataValue>::create(
        QJsonObject{{"type", "record"}, {"arrayInformation", QJsonArray()}}, nullptr);
    leaf->addProperty("value", QStringList{"a", "b"});
    OpenWrapper wrapper;

    QVERIFY(wrapper.resetLeaf(leaf));

    QCOMPARE(wrapper.getArrayType(), Navigator{2});
    QCOMPARE(wrapper.getCellValue({1}), QVariant("b"));
}

void tst_ArrayWrapperTree::rootIsLoadedAndKept()
{
    OpenWrapper wrapper;

    QVERIFY(wrapper.resetRootObject(m_root, "/table"));

    QCOMPARE(wrapper.m_rootObject, m_root);
    QCOMPARE(wrapper.m_leafUrl, QString("/table"));
    QCOMPARE(wrapper.getArrayType(), Navigator({2, 2}));
}

void tst_ArrayWrapperTree::nullRootKeepsTheFormerOne()
{
    OpenWrapper wrapper;
    wrapper.resetRootObject(m_root, "table");

    QVERIFY(!wrapper.resetRootObject({}, "other"));

    QCOMPARE(wrapper.m_rootObject, m_root);
    QCOMPARE(wrapper.m_leafUrl, QString("other"));
    QCOMPARE(wrapper.getArrayType(), Navigator({2, 2}));
}

void tst_ArrayWrapperTree::failedLoadBindsInNameOnly()
{
    OpenWrapper wrapper;
    wrapper.reset({7}, {});
    LogCapture log;

    QVERIFY(!wrapper.resetRootObject(m_root, "nowhere"));

    COMPARE_LOG(log);
    QCOMPARE(wrapper.m_rootObject, m_root);
    QCOMPARE(wrapper.m_leafUrl, QString("nowhere"));
    QCOMPARE(wrapper.getArrayValueContent(), QVariantList{7});
    QCOMPARE(wrapper.setArrayCellsWithStatus(), Base::SetValueTargetMissing);
    QVERIFY(!wrapper.resetRootObject(m_root, "bare"));
    QCOMPARE(wrapper.m_rootObject, m_root);
    QCOMPARE(wrapper.getArrayValueContent(), QVariantList{7});
    // The leaf is there, and so the old lists go into it.
    QVERIFY(wrapper.setArrayCells());
    QCOMPARE(m_root->getLeafConfigurationData("bare")->getValue(), QVariant(QVariantList{7}));
}

void tst_ArrayWrapperTree::ownRootCanBeLoadedAgain()
{
    OpenWrapper wrapper;
    wrapper.resetRootObject(m_root, "table");
    m_root->getLeafConfigurationData("table")->setValue(QVariantList{8});

    QVERIFY(wrapper.resetRootObject(wrapper.m_rootObject, wrapper.m_leafUrl));

    QCOMPARE(wrapper.m_rootObject, m_root);
    QCOMPARE(wrapper.m_leafUrl, QString("table"));
    QCOMPARE(wrapper.getArrayValueContent(), QVariantList{8});
}

void tst_ArrayWrapperTree::changeOfTheLeafIsNotSeen()
{
    OpenWrapper wrapper;
    wrapper.resetRootObject(m_root, "table");

    m_root->getLeafConfigurationData("table")->setValue(QVariantList{9});

    QCOMPARE(wrapper.getCellValue({1, 1}), QVariant(4));
}

void tst_ArrayWrapperTree::informationIsWrittenWithoutSignals()
{
    const auto leaf = m_root->getLeafConfigurationData("table");
    QSignalSpy propertyChanged(leaf.data(), QOverload<>::of(&Base::propertyChanged));
    QSignalSpy valueChanged(leaf.data(), &ConfigurationDataValue::valueChanged);
    OpenWrapper wrapper;
    wrapper.resetLeaf(leaf);

    wrapper.setArrayInfo(1, "unitType", {"C", "Pa"});
    QCOMPARE(wrapper.setArrayInfoWithStatus(m_root, "table"), Base::SetValueChanged);
    QCOMPARE(leaf->getProperty("arrayInformation[1,0]/unitType"), QVariant("C"));
    wrapper.setArrayInfo(1, "unitType", {"F", "Pa"});
    QCOMPARE(wrapper.setArrayInfoWithStatus(leaf), Base::SetValueChanged);
    QCOMPARE(leaf->getProperty("arrayInformation"), QVariant(wrapper.m_arrayInfo));
    wrapper.setArrayInfo(0, QVariantList{"rows"});
    QVERIFY(wrapper.setArrayInfo(m_root, "table"));
    wrapper.setArrayInfo(0, QVariantList{"lines"});
    QVERIFY(wrapper.setArrayInfo(leaf));

    QCOMPARE(leaf->getProperty("arrayInformation[0,0]"), QVariant("lines"));
    QCOMPARE(propertyChanged.count(), 0);
    QCOMPARE(valueChanged.count(), 0);
}

void tst_ArrayWrapperTree::unchangedInformationIsASuccess()
{
    OpenWrapper wrapper;
    wrapper.resetRootObject(m_root, "table");

    QCOMPARE(wrapper.setArrayInfoWithStatus(m_root, "table"), Base::SetValueUnchanged);
    QVERIFY(wrapper.setArrayInfo(m_root, "table"));
    QVERIFY(wrapper.setArrayInfo(m_root->getLeaf(QString("table"))));

    QCOMPARE(frame(m_root), m_text);
}

void tst_ArrayWrapperTree::informationNeedsATarget()
{
    OpenWrapper wrapper;
    wrapper.resetRootObject(m_root, "table");
    wrapper.setArrayInfo(1, "unitType", {"C", "Pa"});
    LogCapture log;

    QCOMPARE(wrapper.setArrayInfoWithStatus({}, "table"), Base::SetValueTargetMissing);
    QCOMPARE(wrapper.setArrayInfoWithStatus(m_root, "nowhere"), Base::SetValueTargetMissing);
    QCOMPARE(wrapper.setArrayInfoWithStatus(Root()), Base::SetValueTargetMissing);
    QVERIFY(!wrapper.setArrayInfo(Root(), "table"));
    QVERIFY(!wrapper.setArrayInfo(m_root, "nowhere"));
    QVERIFY(!wrapper.setArrayInfo(Root()));

    COMPARE_LOG(log);
    QCOMPARE(frame(m_root), m_text);
}

void tst_ArrayWrapperTree::informationNeedsAPropertyThatIsThere()
{
    OpenWrapper wrapper;
    wrapper.resetRootObject(m_root, "table");
    LogCapture log;

    QCOMPARE(wrapper.setArrayInfoWithStatus(m_root, "bare"), Base::SetValuePropertyPathInvalid);

    COMPARE_LOG(log, warning(R"(Key not found "arrayInformation")"));
    QCOMPARE(frame(m_root), m_text);
}

void tst_ArrayWrapperTree::cellsAreWrittenWithSignals()
{
    const auto leaf = m_root->getLeafConfigurationData("table");
    QSignalSpy propertyChanged(leaf.data(), QOverload<>::of(&Base::propertyChanged));
    QSignalSpy valueChanged(leaf.data(), &ConfigurationDataValue::valueChanged);
    OpenWrapper wrapper;
    wrapper.resetRootObject(m_root, "table");
    wrapper.setArrayInfo(1, "unitType", {"C", "Pa"});
    wrapper.m_arrayValueContent = QVariantList{QVariant(QVariantList{9})};

    QCOMPARE(wrapper.setArrayCellsWithStatus(), Base::SetValueChanged);

    QCOMPARE(leaf->getValue(), QVariant(QVariantList{QVariant(QVariantList{9})}));
    QCOMPARE(propertyChanged.count(), 1);
    QCOMPARE(valueChanged.count(), 1);
    // The information has a write of its own.
    QCOMPARE(leaf->getProperty("arrayInformation[1,0]/unitType"), QVariant("K"));
}

void tst_ArrayWrapperTree::unchangedCellsAreASuccess()
{
    OpenWrapper wrapper;
    wrapper.resetRootObject(m_root, "table");

    QCOMPARE(wrapper.setArrayCellsWithStatus(), Base::SetValueUnchanged);
    QVERIFY(wrapper.setArrayCells());
    QCOMPARE(wrapper.setArrayContentTotalWithStatus(), Base::SetValueUnchanged);
    QVERIFY(wrapper.setArrayContentTotal());
    QCOMPARE(frame(m_root), m_text);
}

void tst_ArrayWrapperTree::cellsOfADetachedWrapperHaveNoTarget()
{
    ArrayDataTypeWrapper fromLists({1, 2}, {});
    ArrayDataTypeWrapper fromLeaf({}, {});
    fromLeaf.resetLeaf(m_root->getLeaf(QString("table")));
    LogCapture log;

    for (ArrayDataTypeWrapper *wrapper : {&fromLists, &fromLeaf}) {
        QCOMPARE(wrapper->setArrayCellsWithStatus(), Base::SetValueTargetMissing);
        QVERIFY(!wrapper->setArrayCells());
        QCOMPARE(wrapper->setArrayContentTotalWithStatus(), Base::SetValueTargetMissing);
        QVERIFY(!wrapper->setArrayContentTotal());
    }
    COMPARE_LOG(log);
}

void tst_ArrayWrapperTree::cellsNeedAUrl()
{
    OpenWrapper wrapper;
    wrapper.resetRootObject(m_root, "");
    LogCapture log;

    QCOMPARE(wrapper.m_rootObject, m_root);
    QCOMPARE(wrapper.setArrayCellsWithStatus(), Base::SetValueTargetMissing);

    COMPARE_LOG(log);
}

void tst_ArrayWrapperTree::cellsPassThePattern()
{
    OpenWrapper wrapper;
    wrapper.reset({"no text"}, {});
    wrapper.resetRootObject(m_root, "patterned");
    LogCapture log;

    QCOMPARE(wrapper.setArrayCellsWithStatus(), Base::SetValueRegularExpressionMismatch);
    COMPARE_LOG(log, warning(R"(Regular expression mismatch in configuration "patterned")"));
    QVERIFY(!wrapper.setArrayCells());
    QCOMPARE(frame(m_root), m_text);
}

void tst_ArrayWrapperTree::totalWritesCellsThenInformation()
{
    const auto leaf = m_root->getLeafConfigurationData("table");
    OpenWrapper wrapper;
    wrapper.resetRootObject(m_root, "table");
    wrapper.m_arrayValueContent = QVariantList{5};
    wrapper.setArrayInfo(1, "unitType", {"C", "Pa"});
    QVariant informationAtTheSignal;
    connect(leaf.data(), &ConfigurationDataValue::valueChanged, this,
            [&] { informationAtTheSignal = leaf->getProperty("arrayInformation[1,0]/unitType"); });

    QCOMPARE(wrapper.setArrayContentTotalWithStatus(), Base::SetValueChanged);

    QCOMPARE(informationAtTheSignal, QVariant("K"));
    QCOMPARE(leaf->getValue(), QVariant(QVariantList{5}));
    QCOMPARE(leaf->getProperty("arrayInformation[1,0]/unitType"), QVariant("C"));
    wrapper.m_arrayValueContent = QVariantList{6};
    QVERIFY(wrapper.setArrayContentTotal());
    QCOMPARE(leaf->getValue(), QVariant(QVariantList{6}));
}

void tst_ArrayWrapperTree::totalStopsWhereTheLeafHasGone()
{
    OpenWrapper wrapper;
    wrapper.resetRootObject(m_root, "table");
    wrapper.setArrayInfo(1, "unitType", {"C", "Pa"});
    const auto leaf = m_root->getLeaf(QString("table"));
    m_root.dynamicCast<ConfigurationAndProcessDataTreeNode>()->deleteElement("table");
    LogCapture log;

    QCOMPARE(wrapper.setArrayContentTotalWithStatus(), Base::SetValueTargetMissing);
    QVERIFY(!wrapper.setArrayContentTotal());

    COMPARE_LOG(log);
    QCOMPARE(leaf->getProperty("arrayInformation[1,0]/unitType"), QVariant("K"));
}

void tst_ArrayWrapperTree::refusedCellsDoNotHoldTheInformationBack()
{
    OpenWrapper wrapper;
    wrapper.resetRootObject(m_root, "patterned");
    wrapper.reset({"x"}, {QVariant(QVariantList{"new"})});
    const auto leaf = m_root->getLeafConfigurationData("patterned");
    LogCapture log;

    QCOMPARE(wrapper.setArrayContentTotalWithStatus(), Base::SetValueChanged);

    COMPARE_LOG(log, warning(R"(Regular expression mismatch in configuration "patterned")"));
    QCOMPARE(leaf->getValue(), QVariant("12"));
    QCOMPARE(leaf->getProperty("arrayInformation[0,0]"), QVariant("new"));
}

void tst_ArrayWrapperTree::unchangedCellsDoNotHoldTheInformationBack()
{
    OpenWrapper wrapper;
    wrapper.resetRootObject(m_root, "table");
    wrapper.setArrayInfo(1, "unitType", {"C", "Pa"});

    QCOMPARE(wrapper.setArrayContentTotalWithStatus(), Base::SetValueChanged);

    QCOMPARE(m_root->getLeaf(QString("table"))->getProperty("arrayInformation[1,1]/unitType"),
             QVariant("Pa"));
}

void tst_ArrayWrapperTree::informationDecidesTheTotal()
{
    OpenWrapper wrapper;
    wrapper.resetRootObject(m_root, "bare");
    wrapper.reset({7}, {});
    LogCapture log;

    QCOMPARE(wrapper.setArrayContentTotalWithStatus(), Base::SetValuePropertyPathInvalid);
    QVERIFY(!wrapper.setArrayContentTotal());

    COMPARE_LOG(log, warning(R"(Key not found "arrayInformation")"),
                warning(R"(Key not found "arrayInformation")"));
    QCOMPARE(m_root->getLeafConfigurationData("bare")->getValue(), QVariant(QVariantList{7}));
}

QTEST_GUILESS_MAIN(tst_ArrayWrapperTree)

#include "tst_ArrayWrapperTree.moc"
