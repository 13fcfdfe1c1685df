#include "Configuration/ConfigurationAndProcessDataParser.h"
#include "Configuration/ConfigurationAndProcessDataTools.h"
#include "Configuration/ConfigurationArray2dDataTypeWrapper.h"
#include "Configuration/ConfigurationDataValue.h"
#include "support/HeapWatch.h"
#include "support/NestedLists.h"

#include <QtTest>

#include <functional>

using Base = ConfigurationAndProcessDataBase;
using Root = Base::BaseClassSharedPointer;
using Tools = ConfigurationAndProcessDataTools;

namespace {

constexpr int fewRows = 10;
constexpr int manyRows = 10000;

enum class Shape { Flat, Table };

QJsonArray cells(Shape shape, int rows)
{
    QJsonArray values;
    for (int row = 0; row < rows; ++row) {
        values.append(shape == Shape::Flat ? QJsonValue(row) : QJsonValue(QJsonArray{row, 0.5}));
    }
    return values;
}

Root treeWith(Shape shape, int rows)
{
    const QJsonObject array{{"type", "array"},
                            {"value", cells(shape, rows)},
                            {"arrayInformation", QJsonArray{QJsonArray{}, QJsonArray{}}}};
    return ConfigurationAndProcessDataParser().createNode(
        {{"type", "treenode"}, {"value", QJsonObject{{"array", array}}}}, "config.json");
}

/// True if it did what it was to do.
using Access = std::function<bool(const Root &)>;

/// What one access takes from the heap, the second time.
qint64 takenBy(const Access &access, Shape shape, int rows)
{
    const Root root = treeWith(shape, rows);
    if (!access(root)) {
        return -1;
    }
    const HeapWatch heap;
    return access(root) ? heap.takenBytes() : -1;
}

Access reading(const QString &cell, const QVariant &expected)
{
    return [=](const Root &root) { return Tools::extractConfigValue(cell, root) == expected; };
}

Access writing(const QString &url, const QVariant &value, Base::SetValueStatus expected)
{
    return [=](const Root &root) {
        return Tools::setConfigValueWithStatus(url, root, value) == expected;
    };
}

/// Somebody else holds the rows, so that a write has to copy them.
Access writingByPath(const QString &path, const QVariant &value)
{
    return [=](const Root &root) {
        const Root array = root->getLeaf("array");
        const QVariant held = array->getProperty("value");
        return array->setProperty(path, value) == Base::SetValueUnchanged && held.isValid();
    };
}

/// Stands in the place of a row and counts how often it is compared.
struct Seen
{
    static int comparisons;
};
int Seen::comparisons = 0;

bool operator==(const Seen & /*left*/, const Seen & /*right*/)
{
    ++Seen::comparisons;
    return true;
}

bool operator<(const Seen & /*left*/, const Seen & /*right*/)
{
    ++Seen::comparisons;
    return false;
}

} // namespace

Q_DECLARE_METATYPE(Access)
Q_DECLARE_METATYPE(Shape)
Q_DECLARE_METATYPE(Seen)

/// What one cell costs must not depend on how many others there are. Room on the heap is counted,
/// as rows that are copied need some.
class tst_ArrayCellCosts : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void oneCellTakesTheSameAmongManyRows_data();
    void oneCellTakesTheSameAmongManyRows();
    void anEqualWriteLooksAtItsOwnRowAlone();
};

void tst_ArrayCellCosts::oneCellTakesTheSameAmongManyRows_data()
{
    QTest::addColumn<Shape>("shape");
    QTest::addColumn<Access>("access");

    const auto table = [](const char *name, const Access &access) {
        QTest::newRow(name) << Shape::Table << access;
    };
    table("read", reading("array#3,0", 3));
    table("read outside", reading("array#3,2", QVariant()));
    table("equal write", writing("array#3,0", 3, Base::SetValueUnchanged));
    table("equal write of another type", writing("array#3,0", 3.0, Base::SetValueUnchanged));
    table("equal write by path", writingByPath("value[3,0]", 3));
    table("read by path",
          [](const Root &root) { return root->getLeaf("array")->getProperty("value[3,0]") == 3; });
    table("load", [](const Root &root) {
        return Array2dDataTypeWrapper(root, "array").getNumberOfColumns() == 2;
    });
    table("load of a leaf and one cell", [](const Root &root) {
        return Array2dDataTypeWrapper(root->getLeaf("array")).getCellValue(3, 0) == 3;
    });
    QTest::newRow("read of a flat array") << Shape::Flat << reading("array#3,0", 3);
    QTest::newRow("read outside of a flat array")
        << Shape::Flat << reading("array#3,1", QVariant());
    QTest::newRow("equal write by path into a flat array")
        << Shape::Flat << writingByPath("value[3]", 3);
    QTest::newRow("load of a flat array") << Shape::Flat << Access([](const Root &root) {
        ArrayDataTypeWrapper wrapper({}, {});
        return wrapper.resetRootObject(root, "array") && wrapper.getCellValue({3}) == 3;
    });
}

void tst_ArrayCellCosts::oneCellTakesTheSameAmongManyRows()
{
    QFETCH(Shape, shape);
    QFETCH(Access, access);
    if (!HeapWatch::canWatch()) {
        QSKIP("the sanitizer has a heap of its own", );
    }

    const qint64 amongFew = takenBy(access, shape, fewRows);
    const qint64 amongMany = takenBy(access, shape, manyRows);

    QVERIFY(amongFew >= 0);
    QCOMPARE(amongMany, amongFew);
}

void tst_ArrayCellCosts::anEqualWriteLooksAtItsOwnRowAlone()
{
    QMetaType::registerComparators<Seen>();
    const Root root = treeWith(Shape::Table, 1);
    QVariantList rows = nested({{1, 2}});
    for (int i = 0; i < fewRows; ++i) {
        rows.append(QVariant::fromValue(Seen()));
    }
    root->getLeafConfigurationData("array")->setValueNoSignalEmit(rows);
    Seen::comparisons = 0;

    QCOMPARE(Tools::setConfigValueWithStatus("array#0,1", root, 2), Base::SetValueUnchanged);

    QCOMPARE(Seen::comparisons, 0);
}

QTEST_GUILESS_MAIN(tst_ArrayCellCosts)

#include "tst_ArrayCellCosts.moc"
