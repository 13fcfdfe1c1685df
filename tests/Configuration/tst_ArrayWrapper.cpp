#include "Configuration/ConfigurationArrayDataTypeWrapper.h"
#include "support/ChildProcess.h"
#include "support/LogCapture.h"
#include "support/NestedLists.h"
#include "support/ResourceLimit.h"

#include <limits>

namespace {

using Base = ConfigurationAndProcessDataBase;
using Navigator = QVector<unsigned int>;

QVariantList matrix()
{
    return nested({{1, 2}, {3, 4}});
}

QVariantList cube()
{
    return nested({nested({{1, 2}, {3, 4}, {5, 6}}), nested({{7, 8}, {9, 10}, {11, 12}})});
}

/// Three columns of which the second has no unit type.
QVariantList columnInfo()
{
    return nested({{},
                   {QVariantMap{{"unitType", "temperature"}, {"type", "int32"}},
                    QVariantMap{{"type", "int32"}},
                    QVariantMap{{"unitType", "pressure"}, {"type", "selector"}}}});
}

/// Runs @p misuse in a process of its own; true if that one was aborted.
template <class Misuse>
bool isAborted(const Misuse &misuse)
{
    ChildProcess child([&misuse](const ChildSide &) {
        const ResourceLimit noCoreFile(RLIMIT_CORE, 0);
        signal(SIGABRT, SIG_DFL);
        const LogCapture log;
        misuse();
        return 0;
    });
    return child.waitForExit() == -SIGABRT;
}

} // namespace

class tst_ArrayWrapper : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();

    void dimensionsAreMeasuredAlongTheFirstEntries_data();
    void dimensionsAreMeasuredAlongTheFirstEntries();
    void onlyListsAreDimensions();
    void wrapperWithoutCellsIsFalse();
    void wrapperWithCellsIsTrue();
    void contentIsACopy();
    void resetReplacesEverything();
    void resetWithoutValuesKeepsOnlyTheInformation();

    void navigatorIsValid_data();
    void navigatorIsValid();
    void navigatorsLeadNowhereWithoutCells();
    void innerValuesAreFollowedInward_data();
    void innerValuesAreFollowedInward();
    void shorterBranchGivesNoInnerValues();
    void cellIsFoundByOneIndexADimension_data();
    void cellIsFoundByOneIndexADimension();
    void emptyNavigatorHasNoCell();

    void informationIsGivenByDimension();
    void informationUnderAKeyStaysAligned();
    void onlyMapsHaveKeys();
    void informationOfADimensionIsReplaced();
    void missingDimensionTakesNoInformation();

    void keyIsSetAcrossADimension();
    void wrongNumberOfValuesIsTrueWithoutEffect_data();
    void wrongNumberOfValuesIsTrueWithoutEffect();
    void valueForAMissingKeyChangesNothing();
    void invalidValueSkipsAMissingKey();
    void invalidValueOverwritesAPresentKey();
    void entryThatIsNoMapLacksEveryKey();

private:
    LogCapture *m_log = nullptr;
};

void tst_ArrayWrapper::init()
{
    m_log = new LogCapture;
}

/// The wrapper itself never logs.
void tst_ArrayWrapper::cleanup()
{
    const QList<LogLine> lines = m_log->take();
    delete m_log;
    QCOMPARE(toText(lines), toText({}));
}

void tst_ArrayWrapper::dimensionsAreMeasuredAlongTheFirstEntries_data()
{
    QTest::addColumn<QVariantList>("values");
    QTest::addColumn<Navigator>("type");

    QTest::newRow("nothing") << QVariantList() << Navigator();
    QTest::newRow("flat") << QVariantList{1, 2, 3, 4} << Navigator{4};
    QTest::newRow("one cell") << QVariantList{1} << Navigator{1};
    QTest::newRow("3 by 2") << nested({{1, 2}, {3, 4}, {5, 6}}) << Navigator{3, 2};
    QTest::newRow("one empty row") << nested({{}}) << Navigator{1, 0};
    QTest::newRow("2 by 3 by 2") << cube() << Navigator{2, 3, 2};
    QTest::newRow("empty at depth") << nested({nested({{}})}) << Navigator{1, 1, 0};
    QTest::newRow("longer second row") << nested({{1}, {2, 3}}) << Navigator{2, 1};
    QTest::newRow("list behind a cell")
        << QVariantList{1, QVariant(QVariantList{2, 3})} << Navigator{2};
    QTest::newRow("cell behind a list")
        << QVariantList{QVariant(QVariantList{2, 3}), 1} << Navigator{2, 2};
}

void tst_ArrayWrapper::dimensionsAreMeasuredAlongTheFirstEntries()
{
    QFETCH(QVariantList, values);
    QFETCH(Navigator, type);

    ArrayDataTypeWrapper wrapper(values, {});
    QCOMPARE(wrapper.getArrayType(), type);
    QCOMPARE(wrapper.size(), type);
    QCOMPARE(wrapper.getArrayValueContent(), values);

    QVERIFY(wrapper.init({5}, {}));
    QVERIFY(wrapper.init(values, {}));
    QCOMPARE(wrapper.getArrayType(), type);
}

void tst_ArrayWrapper::onlyListsAreDimensions()
{
    const ArrayDataTypeWrapper texts({QStringList{"a", "b"}, QStringList{"c", "d"}}, {});
    const ArrayDataTypeWrapper maps({QVariantMap{{"a", 1}}}, {});

    QCOMPARE(texts.getArrayType(), Navigator{2});
    QCOMPARE(maps.getArrayType(), Navigator{1});
}

void tst_ArrayWrapper::wrapperWithoutCellsIsFalse()
{
    const ArrayDataTypeWrapper wrapper({}, columnInfo());

    QVERIFY(!wrapper);
    QVERIFY(wrapper.getArrayType().isEmpty());
    QVERIFY(wrapper.getArrayValueContent().isEmpty());
    QCOMPARE(wrapper.getArrayInfo(1).size(), 3);
}

void tst_ArrayWrapper::wrapperWithCellsIsTrue()
{
    QVERIFY(ArrayDataTypeWrapper({1}, {}));
    QVERIFY(ArrayDataTypeWrapper(nested({{}}), {}));
    QVERIFY(ArrayDataTypeWrapper({QVariant()}, {}));
}

void tst_ArrayWrapper::contentIsACopy()
{
    const ArrayDataTypeWrapper wrapper(matrix(), columnInfo());

    QVariantList content = wrapper.getArrayValueContent();
    content.clear();
    QVariantList info = wrapper.getArrayInfo(1);
    info.clear();

    QCOMPARE(wrapper.getArrayValueContent(), matrix());
    QCOMPARE(wrapper.getArrayInfo(1).size(), 3);
}

void tst_ArrayWrapper::resetReplacesEverything()
{
    ArrayDataTypeWrapper wrapper(cube(), columnInfo());

    QVERIFY(wrapper.reset({7, 8, 9}, nested({{"only"}})));

    QCOMPARE(wrapper.getArrayType(), Navigator{3});
    QCOMPARE(wrapper.getArrayValueContent(), QVariantList({7, 8, 9}));
    QCOMPARE(wrapper.getArrayInfo(0), QVariantList({"only"}));
    QVERIFY(wrapper.getArrayInfo(1).isEmpty());
}

void tst_ArrayWrapper::resetWithoutValuesKeepsOnlyTheInformation()
{
    ArrayDataTypeWrapper wrapper(cube(), {});

    QVERIFY(wrapper.reset({}, columnInfo()));

    QVERIFY(!wrapper);
    QVERIFY(wrapper.getArrayType().isEmpty());
    QCOMPARE(wrapper.getArrayInfo(1), columnInfo().at(1).toList());
}

void tst_ArrayWrapper::navigatorIsValid_data()
{
    QTest::addColumn<QVariantList>("values");
    QTest::addColumn<Navigator>("navigator");
    QTest::addColumn<bool>("isValid");

    QTest::newRow("first row") << matrix() << Navigator{0} << true;
    QTest::newRow("last row") << matrix() << Navigator{1} << true;
    QTest::newRow("row past the end") << matrix() << Navigator{2} << false;
    QTest::newRow("one index too many") << matrix() << Navigator{0, 0} << false;
    QTest::newRow("one index too few") << matrix() << Navigator{} << false;
    QTest::newRow("no index into a flat list") << QVariantList{7} << Navigator{} << true;
    QTest::newRow("index into a flat list") << QVariantList{7} << Navigator{0} << false;
    QTest::newRow("last of a cube") << cube() << Navigator{1, 2} << true;
    QTest::newRow("outer index too large") << cube() << Navigator{2, 0} << false;
    QTest::newRow("inner index too large") << cube() << Navigator{0, 3} << false;
    QTest::newRow("largest index")
        << matrix() << Navigator{std::numeric_limits<unsigned int>::max()} << false;
}

void tst_ArrayWrapper::navigatorIsValid()
{
    QFETCH(QVariantList, values);
    QFETCH(Navigator, navigator);

    QTEST(ArrayDataTypeWrapper(values, {}).isNavigatorValid(navigator), "isValid");
}

void tst_ArrayWrapper::navigatorsLeadNowhereWithoutCells()
{
    const ArrayDataTypeWrapper wrapper({}, {});

    for (const Navigator &navigator : {Navigator{}, Navigator{0}, Navigator{0, 0}}) {
        QVERIFY(!wrapper.isNavigatorValid(navigator));
        QVERIFY(wrapper.getInnerArrayValues(navigator).isEmpty());
    }
    QVERIFY(!wrapper.getCellValue({0}).isValid());
    QVERIFY(!wrapper.getCellValue({0, 0}).isValid());
}

void tst_ArrayWrapper::innerValuesAreFollowedInward_data()
{
    QTest::addColumn<QVariantList>("values");
    QTest::addColumn<Navigator>("navigator");
    QTest::addColumn<QVariantList>("inner");

    QTest::newRow("flat list") << QVariantList{7, 8} << Navigator{} << QVariantList{7, 8};
    QTest::newRow("row") << matrix() << Navigator{1} << QVariantList{3, 4};
    QTest::newRow("cube") << cube() << Navigator{1, 2} << QVariantList{11, 12};
    QTest::newRow("past the end") << matrix() << Navigator{2} << QVariantList{};
    QTest::newRow("too short") << cube() << Navigator{1} << QVariantList{};
    QTest::newRow("too long") << matrix() << Navigator{1, 0} << QVariantList{};
    QTest::newRow("longer branch") << nested({{1}, {2, 3}}) << Navigator{1} << QVariantList{2, 3};
}

void tst_ArrayWrapper::innerValuesAreFollowedInward()
{
    QFETCH(QVariantList, values);
    QFETCH(Navigator, navigator);

    QTEST(ArrayDataTypeWrapper(values, {}).getInnerArrayValues(navigator), "inner");
}

void tst_ArrayWrapper::shorterBranchGivesNoInnerValues()
{
    // Measured as 2 by 2 by 1, but the second branch has one list only.
    const ArrayDataTypeWrapper wrapper(nested({nested({{1}, {2}}), nested({{3}})}), {});

    QVERIFY(wrapper.isNavigatorValid({1, 1}));
    QVERIFY(wrapper.getInnerArrayValues({1, 1}).isEmpty());
    QVERIFY(!wrapper.getCellValue({1, 1, 0}).isValid());
}

void tst_ArrayWrapper::cellIsFoundByOneIndexADimension_data()
{
    QTest::addColumn<QVariantList>("values");
    QTest::addColumn<Navigator>("navigator");
    QTest::addColumn<QVariant>("cell");

    QTest::newRow("flat") << QVariantList{7, 8, 9} << Navigator{2} << QVariant(9);
    QTest::newRow("flat, past the end") << QVariantList{7, 8, 9} << Navigator{3} << QVariant();
    QTest::newRow("flat, last index counts")
        << QVariantList{7, 8} << Navigator{5, 1} << QVariant(8);
    QTest::newRow("matrix") << matrix() << Navigator{1, 1} << QVariant(4);
    QTest::newRow("matrix, column past the end") << matrix() << Navigator{1, 5} << QVariant();
    QTest::newRow("matrix, row past the end") << matrix() << Navigator{2, 0} << QVariant();
    QTest::newRow("matrix, one index") << matrix() << Navigator{1} << QVariant();
    QTest::newRow("cube") << cube() << Navigator{0, 1, 1} << QVariant(4);
    QTest::newRow("cube, two indices") << cube() << Navigator{0, 1} << QVariant();
    QTest::newRow("longer branch") << nested({{1}, {2, 3}}) << Navigator{1, 1} << QVariant(3);
    QTest::newRow("empty row") << nested({{}}) << Navigator{0, 0} << QVariant();
    QTest::newRow("largest index")
        << matrix() << Navigator{0, std::numeric_limits<unsigned int>::max()} << QVariant();
}

void tst_ArrayWrapper::cellIsFoundByOneIndexADimension()
{
    QFETCH(QVariantList, values);
    QFETCH(Navigator, navigator);
    QFETCH(QVariant, cell);

    const QVariant found = ArrayDataTypeWrapper(values, {}).getCellValue(navigator);

    QCOMPARE(found, cell);
    QCOMPARE(found.isValid(), cell.isValid());
}

void tst_ArrayWrapper::emptyNavigatorHasNoCell()
{
    QVERIFY(isAborted([] { ArrayDataTypeWrapper({7, 8}, {}).getCellValue(Navigator()); }));
    QVERIFY(isAborted([] { ArrayDataTypeWrapper(matrix(), {}).getCellValue(Navigator()); }));
    QVERIFY(!isAborted([] { ArrayDataTypeWrapper(matrix(), {}).getCellValue({9}); }));
}

void tst_ArrayWrapper::informationIsGivenByDimension()
{
    const ArrayDataTypeWrapper wrapper(matrix(), {QVariant(QVariantList{"rows"}), "no list"});

    QCOMPARE(wrapper.getArrayInfo(0), QVariantList({"rows"}));
    QVERIFY(wrapper.getArrayInfo(1).isEmpty());
    QVERIFY(wrapper.getArrayInfo(2).isEmpty());
    QVERIFY(wrapper.getArrayInfo(std::numeric_limits<unsigned int>::max()).isEmpty());
}

void tst_ArrayWrapper::informationUnderAKeyStaysAligned()
{
    const ArrayDataTypeWrapper wrapper(matrix(), columnInfo());

    QCOMPARE(wrapper.getArrayInfo(1, "unitType"),
             QVariantList({"temperature", QVariant(), "pressure"}));
    QCOMPARE(wrapper.getArrayInfo(1, "none"), QVariantList({QVariant(), QVariant(), QVariant()}));
    QVERIFY(wrapper.getArrayInfo(0, "unitType").isEmpty());
    QVERIFY(wrapper.getArrayInfo(2, "unitType").isEmpty());
}

void tst_ArrayWrapper::onlyMapsHaveKeys()
{
    const ArrayDataTypeWrapper wrapper(
        {1}, nested({{QVariantHash{{"a", 1}}, "a", QVariant(), QVariantMap{{"a", 2}}}}));

    QCOMPARE(wrapper.getArrayInfo(0, "a"), QVariantList({QVariant(), QVariant(), QVariant(), 2}));
}

void tst_ArrayWrapper::informationOfADimensionIsReplaced()
{
    ArrayDataTypeWrapper wrapper(matrix(), columnInfo());

    QVERIFY(wrapper.setArrayInfo(0, QVariantList{"rows"}));
    QVERIFY(wrapper.setArrayInfo(1, QVariantList()));

    QCOMPARE(wrapper.getArrayInfo(0), QVariantList({"rows"}));
    QVERIFY(wrapper.getArrayInfo(1).isEmpty());
    QCOMPARE(wrapper.getArrayValueContent(), matrix());
}

void tst_ArrayWrapper::missingDimensionTakesNoInformation()
{
    ArrayDataTypeWrapper wrapper(matrix(), columnInfo());

    QVERIFY(!wrapper.setArrayInfo(2, QVariantList{"layers"}));
    QVERIFY(!wrapper.setArrayInfo(std::numeric_limits<unsigned int>::max(), QVariantList{"far"}));

    QVERIFY(wrapper.getArrayInfo(2).isEmpty());
    QCOMPARE(wrapper.getArrayInfo(1), columnInfo().at(1).toList());
}

void tst_ArrayWrapper::keyIsSetAcrossADimension()
{
    ArrayDataTypeWrapper wrapper(matrix(), columnInfo());

    QVERIFY(wrapper.setArrayInfo(1, "type", {"double", "float", "uint8"}));

    QCOMPARE(wrapper.getArrayInfo(1, "type"), QVariantList({"double", "float", "uint8"}));
    QCOMPARE(wrapper.getArrayInfo(1, "unitType"),
             QVariantList({"temperature", QVariant(), "pressure"}));
    QCOMPARE(wrapper.getArrayInfo(1).at(0).type(), QVariant::Map);
}

void tst_ArrayWrapper::wrongNumberOfValuesIsTrueWithoutEffect_data()
{
    QTest::addColumn<unsigned int>("dimension");
    QTest::addColumn<QVariantList>("values");

    QTest::newRow("too few") << 1U << QVariantList{"a", "b"};
    QTest::newRow("too many") << 1U << QVariantList{"a", "b", "c", "d"};
    QTest::newRow("none") << 1U << QVariantList();
    QTest::newRow("dimension without entries") << 0U << QVariantList{"a"};
    QTest::newRow("dimension without entries, no values") << 0U << QVariantList();
    QTest::newRow("missing dimension") << 2U << QVariantList{"a"};
}

void tst_ArrayWrapper::wrongNumberOfValuesIsTrueWithoutEffect()
{
    QFETCH(unsigned int, dimension);
    QFETCH(QVariantList, values);
    ArrayDataTypeWrapper wrapper(matrix(), columnInfo());

    QVERIFY(wrapper.setArrayInfo(dimension, "type", values));

    QVERIFY(wrapper.getArrayInfo(0).isEmpty());
    QCOMPARE(wrapper.getArrayInfo(1), columnInfo().at(1).toList());
}

void tst_ArrayWrapper::valueForAMissingKeyChangesNothing()
{
    ArrayDataTypeWrapper wrapper(matrix(), columnInfo());

    QVERIFY(!wrapper.setArrayInfo(1, "unitType", {"a", "b", "c"}));

    QCOMPARE(wrapper.getArrayInfo(1), columnInfo().at(1).toList());
}

void tst_ArrayWrapper::invalidValueSkipsAMissingKey()
{
    ArrayDataTypeWrapper wrapper(matrix(), columnInfo());

    QVERIFY(wrapper.setArrayInfo(1, "unitType", {"a", QVariant(), "c"}));

    QCOMPARE(wrapper.getArrayInfo(1, "unitType"), QVariantList({"a", QVariant(), "c"}));
    QVERIFY(!wrapper.getArrayInfo(1).at(1).toMap().contains("unitType"));
}

void tst_ArrayWrapper::invalidValueOverwritesAPresentKey()
{
    ArrayDataTypeWrapper wrapper(matrix(), columnInfo());

    QVERIFY(wrapper.setArrayInfo(1, "unitType", {QVariant(), QVariant(), "c"}));

    const QVariantMap first = wrapper.getArrayInfo(1).at(0).toMap();
    QVERIFY(first.contains("unitType"));
    QVERIFY(!first.value("unitType").isValid());
    QCOMPARE(first.value("type"), QVariant("int32"));
    QCOMPARE(wrapper.getArrayInfo(1, "unitType").at(2), QVariant("c"));
}

void tst_ArrayWrapper::entryThatIsNoMapLacksEveryKey()
{
    const QVariantList entries{"text", QVariantMap{{"a", 1}}};
    ArrayDataTypeWrapper wrapper({1}, nested({entries}));

    QVERIFY(!wrapper.setArrayInfo(0, "a", {5, 6}));
    QCOMPARE(wrapper.getArrayInfo(0), entries);

    QVERIFY(wrapper.setArrayInfo(0, "a", {QVariant(), 6}));
    QCOMPARE(wrapper.getArrayInfo(0), QVariantList({"text", QVariantMap{{"a", 6}}}));
}

QTEST_GUILESS_MAIN(tst_ArrayWrapper)

#include "tst_ArrayWrapper.moc"
