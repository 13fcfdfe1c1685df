#include "Configuration/ConfigurationAndProcessDataParser.h"
#include "support/LogCapture.h"
#include "support/RecordingWrapper.h"

#include <cstddef>
#include <cstring>
#include <type_traits>

namespace {

using Base = ConfigurationAndProcessDataBase;
using Root = Base::BaseClassSharedPointer;

Root parseDevice()
{
    return ConfigurationAndProcessDataParser().parseFromByteArray(
        R"({"type":"treenode","value":{
            "table":{"type":"array","value":[[1,2],[3,4]],
                     "arrayInformation":[[],[{"type":"int32","unitType":"K","value":0},
                                             {"type":"int32","unitType":"bar","value":0}]],
                     "arrayHasDynamicRows":true,"arrayMaxRows":9},
            "flat":{"type":"array","value":[5,6],"arrayInformation":[[],[{}]]},
            "bare":{"type":"array","value":[5,6]}}})",
        "config.json");
}

template <class Wrapper>
Wrapper loaded(const Root &root)
{
    Wrapper wrapper{QVariantList(), QVariantList()};
    wrapper.resetRootObject(root, "table");
    Wrapper::takeCalls();
    return wrapper;
}

/// The place of a virtual function in its table: a pointer to a member holds its offset, on some
/// machines with the lowest bit set.
template <class Function>
std::ptrdiff_t slotOf(Function function)
{
    std::ptrdiff_t words[2] = {};
    static_assert(sizeof(function) == sizeof(words));
    std::memcpy(words, &function, sizeof(words));
    return words[0] / static_cast<std::ptrdiff_t>(sizeof(void *));
}

} // namespace

/// Which operations of the wrappers a derived class sees being called.
class tst_ArrayWrapperCalls : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();

    void tableOfVirtualFunctionsHasAFixedOrder();
    void cellComesThroughTheInnerValues();
    void keyOfADimensionComesThroughTheDimension();
    void keyOfADimensionIsSetThroughTheDimension();
    void refusedKeySetsNoDimension();
    void informationIsWrittenThroughTheLeafForm();
    void cellsAreWrittenAsTheContentTellsThem();
    void totalIsWrittenThroughBothParts();
    void totalWithoutTargetTriesNoInformation();
    void boolFormsCallTheStatusForms();
    void leafIsLoadedThroughReset();
    void rootIsLoadedThroughTheLeaf();

    void constructionCallsTheClassUnderConstruction();
    void constructionOfATableFromAFlatListMakesAColumn();
    void rowComesThroughTheInnerValues();
    void noRowIsLookedUpWithoutTwoDimensions();
    void cellOfATableComesThroughItsRow();
    void columnComesThroughItsRows();
    void columnDescriptionsComeThroughTheDimension();
    void unitTypesAreSetThroughTheKey();
    void tableIsResetInOneCall();
    void tableLoadsItsRootThroughTheLeaf();

private:
    Root m_root;
};

void tst_ArrayWrapperCalls::init()
{
    m_root = parseDevice();
    RecordingArray::takeCalls();
    RecordingTable::takeCalls();
}

void tst_ArrayWrapperCalls::cleanup()
{
    m_root.clear();
}

void tst_ArrayWrapperCalls::tableOfVirtualFunctionsHasAFixedOrder()
{
    using W = ArrayDataTypeWrapper;
    using Navigator = QVector<unsigned int>;
    using Status = W::SetValueStatus;
    const QVector<std::ptrdiff_t> places{
        slotOf(&W::getArrayValueContent),
        slotOf(&W::getInnerArrayValues),
        slotOf(static_cast<QVariant (W::*)(const Navigator &) const>(&W::getCellValue)),
        slotOf(&W::getArrayType),
        slotOf(&W::size),
        slotOf(static_cast<QVariantList (W::*)(unsigned int) const>(&W::getArrayInfo)),
        slotOf(static_cast<bool (W::*)(unsigned int, const QVariantList &)>(&W::setArrayInfo)),
        slotOf(static_cast<QVariantList (W::*)(unsigned int, const QString &) const>(
            &W::getArrayInfo)),
        slotOf(static_cast<bool (W::*)(unsigned int, const QString &, const QVariantList &)>(
            &W::setArrayInfo)),
        slotOf(
            static_cast<Status (W::*)(const Root &, const QString &)>(&W::setArrayInfoWithStatus)),
        slotOf(static_cast<Status (W::*)(const Root &)>(&W::setArrayInfoWithStatus)),
        slotOf(&W::setArrayCellsWithStatus),
        slotOf(&W::setArrayContentTotalWithStatus),
        slotOf(static_cast<bool (W::*)(const Root &, const QString &)>(&W::setArrayInfo)),
        slotOf(static_cast<bool (W::*)(const Root &)>(&W::setArrayInfo)),
        slotOf(&W::setArrayCells),
        slotOf(&W::setArrayContentTotal),
        slotOf(&W::reset),
        slotOf(&W::resetLeaf),
        slotOf(&W::resetRootObject)};

    // Both destructors come first.
    for (int i = 0; i < places.size(); ++i) {
        QCOMPARE(places.at(i), std::ptrdiff_t{i + 2});
    }
    QVERIFY(std::has_virtual_destructor_v<W>);
}

void tst_ArrayWrapperCalls::cellComesThroughTheInnerValues()
{
    auto wrapper = loaded<RecordingArray>(m_root);

    QCOMPARE(wrapper.getCellValue({1, 0}), QVariant(3));
    QCOMPARE(wrapper.takeCalls(), QStringList({"getCellValue(1, 0)", "getInnerArrayValues(1)"}));

    // The inner values are asked also where there are none.
    QVERIFY(!wrapper.getCellValue({7, 0}).isValid());
    QCOMPARE(wrapper.takeCalls(), QStringList({"getCellValue(7, 0)", "getInnerArrayValues(7)"}));

    wrapper.ArrayDataTypeWrapper::reset({7, 8, 9}, {});
    QCOMPARE(wrapper.getCellValue({2}), QVariant(9));
    QCOMPARE(wrapper.takeCalls(), QStringList({"getCellValue(2)"}));
}

void tst_ArrayWrapperCalls::keyOfADimensionComesThroughTheDimension()
{
    auto wrapper = loaded<RecordingArray>(m_root);

    QCOMPARE(wrapper.getArrayInfo(1, "unitType"), QVariantList({"K", "bar"}));

    QCOMPARE(wrapper.takeCalls(), QStringList({"getArrayInfo(1, unitType)", "getArrayInfo(1)"}));
}

void tst_ArrayWrapperCalls::keyOfADimensionIsSetThroughTheDimension()
{
    auto wrapper = loaded<RecordingArray>(m_root);

    QVERIFY(wrapper.setArrayInfo(1, "unitType", {"C", "Pa"}));

    QCOMPARE(wrapper.takeCalls(), QStringList({"setArrayInfo(1, unitType, values)",
                                               "getArrayInfo(1)", "setArrayInfo(1, info)"}));
}

void tst_ArrayWrapperCalls::refusedKeySetsNoDimension()
{
    auto wrapper = loaded<RecordingArray>(m_root);

    QVERIFY(!wrapper.setArrayInfo(1, "none", {"C", "Pa"}));
    QCOMPARE(wrapper.takeCalls(),
             QStringList({"setArrayInfo(1, none, values)", "getArrayInfo(1)"}));

    QVERIFY(wrapper.setArrayInfo(1, "unitType", {"C"}));
    QCOMPARE(wrapper.takeCalls(),
             QStringList({"setArrayInfo(1, unitType, values)", "getArrayInfo(1)"}));
}

void tst_ArrayWrapperCalls::informationIsWrittenThroughTheLeafForm()
{
    auto wrapper = loaded<RecordingArray>(m_root);

    wrapper.setArrayInfoWithStatus(m_root, "table");
    QCOMPARE(wrapper.takeCalls(),
             QStringList({"setArrayInfoWithStatus(root, url)", "setArrayInfoWithStatus(leaf)"}));

    wrapper.setArrayInfoWithStatus(m_root, "nowhere");
    wrapper.setArrayInfoWithStatus({}, "table");
    QCOMPARE(wrapper.takeCalls(), QStringList({"setArrayInfoWithStatus(root, url)",
                                               "setArrayInfoWithStatus(root, url)"}));
}

void tst_ArrayWrapperCalls::cellsAreWrittenAsTheContentTellsThem()
{
    /// Writes back something else than it holds.
    class Editing : public ArrayDataTypeWrapper
    {
    public:
        using ArrayDataTypeWrapper::ArrayDataTypeWrapper;
        QVariantList getArrayValueContent() const override { return {"edited"}; }
    };
    auto wrapper = loaded<RecordingArray>(m_root);
    wrapper.setArrayCellsWithStatus();
    QCOMPARE(wrapper.takeCalls(),
             QStringList({"setArrayCellsWithStatus()", "getArrayValueContent()"}));

    Editing editing{QVariantList(), QVariantList()};
    editing.resetRootObject(m_root, "table");
    QCOMPARE(editing.setArrayCellsWithStatus(), Base::SetValueChanged);

    QCOMPARE(m_root->getLeaf(QString("table"))->getProperty("value"),
             QVariant(QVariantList{"edited"}));
}

void tst_ArrayWrapperCalls::totalIsWrittenThroughBothParts()
{
    auto wrapper = loaded<RecordingArray>(m_root);

    wrapper.setArrayContentTotalWithStatus();

    QCOMPARE(wrapper.takeCalls(),
             QStringList({"setArrayContentTotalWithStatus()", "setArrayCellsWithStatus()",
                          "getArrayValueContent()", "setArrayInfoWithStatus(root, url)",
                          "setArrayInfoWithStatus(leaf)"}));
}

void tst_ArrayWrapperCalls::totalWithoutTargetTriesNoInformation()
{
    RecordingArray wrapper({1}, {});

    wrapper.setArrayContentTotalWithStatus();

    QCOMPARE(wrapper.takeCalls(),
             QStringList({"setArrayContentTotalWithStatus()", "setArrayCellsWithStatus()"}));
}

void tst_ArrayWrapperCalls::boolFormsCallTheStatusForms()
{
    RecordingArray wrapper({1}, {});

    wrapper.setArrayCells();
    QCOMPARE(wrapper.takeCalls(), QStringList({"setArrayCellsWithStatus()"}));
    wrapper.setArrayContentTotal();
    QCOMPARE(wrapper.takeCalls(),
             QStringList({"setArrayContentTotalWithStatus()", "setArrayCellsWithStatus()"}));
    wrapper.setArrayInfo(Root(), "url");
    QCOMPARE(wrapper.takeCalls(),
             QStringList({"setArrayInfo(root, url)", "setArrayInfoWithStatus(root, url)"}));
    wrapper.setArrayInfo(Root());
    QCOMPARE(wrapper.takeCalls(),
             QStringList({"setArrayInfo(leaf)", "setArrayInfoWithStatus(leaf)"}));
}

void tst_ArrayWrapperCalls::leafIsLoadedThroughReset()
{
    RecordingArray wrapper({1}, {});

    wrapper.resetLeaf(m_root->getLeaf(QString("table")));
    QCOMPARE(wrapper.takeCalls(), QStringList({"resetLeaf(leaf)", "reset(values, info)"}));

    wrapper.resetLeaf(m_root->getLeaf(QString("bare")));
    QCOMPARE(wrapper.takeCalls(), QStringList({"resetLeaf(leaf)"}));
}

void tst_ArrayWrapperCalls::rootIsLoadedThroughTheLeaf()
{
    RecordingArray wrapper({1}, {});

    wrapper.resetRootObject(m_root, "table");
    QCOMPARE(wrapper.takeCalls(), QStringList({"resetRootObject(root, table)", "resetLeaf(leaf)",
                                               "reset(values, info)"}));

    wrapper.resetRootObject(m_root, "nowhere");
    QCOMPARE(wrapper.takeCalls(),
             QStringList({"resetRootObject(root, nowhere)", "resetLeaf(null)"}));

    wrapper.resetRootObject({}, "table");
    QCOMPARE(wrapper.takeCalls(), QStringList({"resetRootObject(root, table)"}));
}

void tst_ArrayWrapperCalls::constructionCallsTheClassUnderConstruction()
{
    const RecordingArray array({1, 2}, {});
    const RecordingTable flat({1, 2}, {});
    const RecordingTable fromLeaf(m_root->getLeaf(QString("flat")));
    const RecordingTable fromRoot(m_root, "flat");
    const RecordingTable bounded({1, 2}, {}, 1, 2);

    QCOMPARE(RecordingArray::takeCalls(), QStringList());
    QCOMPARE(RecordingTable::takeCalls(), QStringList());
    QCOMPARE(array.getArrayType(), QVector<unsigned int>{2});
}

void tst_ArrayWrapperCalls::constructionOfATableFromAFlatListMakesAColumn()
{
    const QVector<unsigned int> column{2, 1};

    QCOMPARE(Array2dDataTypeWrapper({1, 2}, {}).getArrayType(), column);
    QCOMPARE(Array2dDataTypeWrapper(m_root->getLeaf(QString("flat"))).getArrayType(), column);
    QCOMPARE(Array2dDataTypeWrapper(m_root, "flat").getArrayType(), column);
}

void tst_ArrayWrapperCalls::rowComesThroughTheInnerValues()
{
    const auto table = loaded<RecordingTable>(m_root);

    QCOMPARE(table.getRowValues(1), QVariantList({3, 4}));
    QCOMPARE(table.takeCalls(), QStringList({"getInnerArrayValues(1)"}));
    QVERIFY(table.getRowValues(7).isEmpty());
    QCOMPARE(table.takeCalls(), QStringList({"getInnerArrayValues(7)"}));
    QCOMPARE(table(0), QVariantList({1, 2}));
    QCOMPARE(table.takeCalls(), QStringList({"getInnerArrayValues(0)"}));
    QCOMPARE(table.getRowValues(1, 0, 1), QVariantList{3});
    QCOMPARE(table.takeCalls(), QStringList({"getInnerArrayValues(1)"}));
}

void tst_ArrayWrapperCalls::noRowIsLookedUpWithoutTwoDimensions()
{
    const RecordingTable empty{QVariantList(), QVariantList()};

    QVERIFY(empty.getRowValues(0).isEmpty());
    QVERIFY(empty.getColumnValues(0).isEmpty());

    QCOMPARE(empty.takeCalls(), QStringList());
}

void tst_ArrayWrapperCalls::cellOfATableComesThroughItsRow()
{
    const auto table = loaded<RecordingTable>(m_root);

    QCOMPARE(table.getCellValue(1, 1), QVariant(4));
    QCOMPARE(table.takeCalls(), QStringList({"getInnerArrayValues(1)"}));
    QCOMPARE(table(0, 1), QVariant(2));
    QCOMPARE(table.takeCalls(), QStringList({"getInnerArrayValues(0)"}));
}

void tst_ArrayWrapperCalls::columnComesThroughItsRows()
{
    const auto table = loaded<RecordingTable>(m_root);

    QCOMPARE(table.getColumnValues(1), QVariantList({2, 4}));
    QCOMPARE(table.takeCalls(), QStringList({"getInnerArrayValues(0)", "getInnerArrayValues(1)"}));
    QVERIFY(table.getColumnValues(2).isEmpty());
    QCOMPARE(table.takeCalls(), QStringList());
}

void tst_ArrayWrapperCalls::columnDescriptionsComeThroughTheDimension()
{
    auto table = loaded<RecordingTable>(m_root);

    table.getColumnDataType(0);
    QCOMPARE(table.takeCalls(), QStringList({"getArrayInfo(1, type)", "getArrayInfo(1)"}));
    table.getColumnUnitTypes();
    QCOMPARE(table.takeCalls(), QStringList({"getArrayInfo(1)"}));
    table.getInfoAllColumns("value");
    QCOMPARE(table.takeCalls(), QStringList({"getArrayInfo(1, value)", "getArrayInfo(1)"}));
    table.extractDynamicArraysProperties(m_root->getLeaf(QString("table")));
    QVERIFY(table.addNewRow());
    QCOMPARE(table.takeCalls(), QStringList({"getArrayInfo(1, value)", "getArrayInfo(1)"}));
}

void tst_ArrayWrapperCalls::unitTypesAreSetThroughTheKey()
{
    auto table = loaded<RecordingTable>(m_root);
    const QStringList setting{"setArrayInfo(1, unitType, values)", "getArrayInfo(1)",
                              "setArrayInfo(1, info)"};

    QVERIFY(table.setColumnUnitTypes({"C", "Pa"}));
    QCOMPARE(table.takeCalls(), setting);
    QVERIFY(table.setColumnUnitType(0, "F"));
    QCOMPARE(table.takeCalls(), QStringList("getArrayInfo(1)") + setting);
}

void tst_ArrayWrapperCalls::tableIsResetInOneCall()
{
    RecordingTable table{QVariantList(), QVariantList()};

    QVERIFY(table.reset(QVariantList{1, 2}, QVariantList()));

    QCOMPARE(table.takeCalls(), QStringList({"reset(values, info)"}));
    QCOMPARE(table.getNumberOfColumns(), 1U);
}

void tst_ArrayWrapperCalls::tableLoadsItsRootThroughTheLeaf()
{
    RecordingTable table{QVariantList(), QVariantList()};

    QVERIFY(table.reset(m_root, "table"));

    QCOMPARE(table.takeCalls(), QStringList({"resetLeaf(leaf)", "reset(values, info)"}));
}

QTEST_GUILESS_MAIN(tst_ArrayWrapperCalls)

#include "tst_ArrayWrapperCalls.moc"
