#include "screen/TrendMemory.h"
#include "screen/ValueTree.h"

#include <QtTest>

namespace {

const QStringList urls{QStringLiteral("pump/speed"), QStringLiteral("pump/motor/current"),
                       QStringLiteral("boiler/level"), QStringLiteral("time")};

/// Every row: what is pinned with a star, nodes with a slash, the selected one in brackets.
QStringList rowsOf(const ValueTree &tree)
{
    QStringList rows;
    for (int i = 0; i < tree.rows().size(); ++i) {
        const ValueTree::Row &row = tree.rows()[i];
        const ValueTree::Entry &entry = tree.entry(row.entry);
        QString text = QString(entry.depth, QLatin1Char(' ')) + entry.name;
        text += entry.leaf < 0 ? QStringLiteral("/") : QString();
        text = row.isPinned ? QStringLiteral("*") + tree.url(entry.leaf) : text;
        rows.append(i == tree.selected() ? QStringLiteral("[%1]").arg(text) : text);
    }
    return rows;
}

QStringList lines(const char *text)
{
    return QString::fromLatin1(text).split(QLatin1Char(','));
}

} // namespace

/// The rows of the full screen, without a screen.
class tst_ValueTree : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void leavesStandBelowTheirNodes();
    void emptyTreeHasNoRows();
    void selectionStopsAtTheEnds();
    void foldedNodeHidesWhatIsBelow();
    void foldOfALeafGoesToItsNode();
    void filterKeepsMatchesAndNodesAbove();
    void filterTakesPatterns();
    void filterUnfoldsWhileItIsSet();
    void selectionStaysWithItsRow();
    void selectionThatVanishesGoesToWhatFollows();
    void onlyInvalidFollowsTheValues();
    void pinnedLeavesStandOnTopInTheirOrder();
    void selectionFollowsWhatIsTakenDown();
    void nodeIsNotPinned();
    void manyLeavesAreQuick();
    void trendsOfLongAgoAreForgottenButNotPinnedOnes();
};

void tst_ValueTree::leavesStandBelowTheirNodes()
{
    const ValueTree tree(urls);

    QCOMPARE(rowsOf(tree), lines("[pump/], speed, motor/,  current,boiler/, level,time"));
    QCOMPARE(tree.leafCount(), 4);
    QCOMPARE(tree.entry(0).end, 4);
    QCOMPARE(tree.entry(2).end, 4);
    QCOMPARE(tree.entry(3).leaf, 1);
    QCOMPARE(tree.entry(3).parent, 2);
}

void tst_ValueTree::emptyTreeHasNoRows()
{
    ValueTree tree{QStringList()};

    tree.moveBy(1);
    tree.toggle();
    tree.togglePin();
    tree.fold();
    tree.unfold();

    QVERIFY(tree.rows().isEmpty());
    QCOMPARE(tree.selected(), -1);
    QCOMPARE(tree.selectedLeaf(), -1);
}

void tst_ValueTree::selectionStopsAtTheEnds()
{
    ValueTree tree(urls);

    tree.moveBy(-3);
    QCOMPARE(tree.selected(), 0);
    tree.moveBy(1);
    QCOMPARE(tree.selectedLeaf(), 0);
    tree.moveToLast();
    QCOMPARE(tree.selectedLeaf(), 3);
    tree.moveBy(100);
    QCOMPARE(tree.selectedLeaf(), 3);
    tree.moveToFirst();
    QCOMPARE(tree.selected(), 0);
}

void tst_ValueTree::foldedNodeHidesWhatIsBelow()
{
    ValueTree tree(urls);

    tree.toggle();

    QCOMPARE(rowsOf(tree), lines("[pump/],boiler/, level,time"));
    QCOMPARE(tree.shownLeafCount(), 4);
    tree.unfold();
    QCOMPARE(tree.rows().size(), 7);
}

void tst_ValueTree::foldOfALeafGoesToItsNode()
{
    ValueTree tree(urls);
    tree.moveBy(3);

    tree.fold();
    QCOMPARE(tree.rows()[tree.selected()].entry, 2);
    tree.fold();
    QCOMPARE(rowsOf(tree), lines("pump/, speed,[ motor/],boiler/, level,time"));
    tree.fold();
    QCOMPARE(tree.selected(), 0);
}

void tst_ValueTree::filterKeepsMatchesAndNodesAbove()
{
    ValueTree tree(urls);

    tree.setFilter(QStringLiteral("MOTOR"));

    QCOMPARE(rowsOf(tree), lines("[pump/], motor/,  current"));
    QCOMPARE(tree.shownLeafCount(), 1);
    tree.setFilter(QStringLiteral("none"));
    QVERIFY(tree.rows().isEmpty());
    QCOMPARE(tree.selected(), -1);
    tree.setFilter({});
    QCOMPARE(tree.rows().size(), 7);
    QCOMPARE(tree.selected(), 0);
}

void tst_ValueTree::filterTakesPatterns()
{
    ValueTree tree(urls);

    tree.setFilter(QStringLiteral("*/level"));

    QCOMPARE(rowsOf(tree), lines("[boiler/], level"));
}

void tst_ValueTree::filterUnfoldsWhileItIsSet()
{
    ValueTree tree(urls);
    tree.toggle();

    tree.setFilter(QStringLiteral("speed"));
    QCOMPARE(rowsOf(tree), lines("[pump/], speed"));
    tree.setFilter({});

    QCOMPARE(rowsOf(tree), lines("[pump/],boiler/, level,time"));
}

void tst_ValueTree::selectionStaysWithItsRow()
{
    ValueTree tree(urls);
    tree.moveBy(5);

    tree.setFilter(QStringLiteral("level"));

    QCOMPARE(rowsOf(tree), lines("boiler/,[ level]"));
}

void tst_ValueTree::selectionThatVanishesGoesToWhatFollows()
{
    ValueTree tree(urls);
    tree.moveBy(1);

    tree.setFilter(QStringLiteral("e")); // all but what is selected stay
    tree.setFilter(QStringLiteral("level"));

    QCOMPARE(rowsOf(tree), lines("[boiler/], level"));
}

void tst_ValueTree::onlyInvalidFollowsTheValues()
{
    ValueTree tree(urls);
    tree.setInvalid({false, true, false, false});
    QCOMPARE(tree.rows().size(), 7);

    tree.setInvalidOnly(true);
    QCOMPARE(rowsOf(tree), lines("[pump/], motor/,  current"));
    tree.setInvalid({false, false, false, true});
    QCOMPARE(rowsOf(tree), lines("[time]"));
    tree.setInvalidOnly(false);

    QCOMPARE(tree.rows().size(), 7);
}

void tst_ValueTree::pinnedLeavesStandOnTopInTheirOrder()
{
    ValueTree tree(urls);
    tree.moveToLast();
    tree.togglePin();
    tree.moveBy(-1);
    tree.togglePin();

    QCOMPARE(rowsOf(tree).mid(0, 3), lines("*time,*boiler/level,pump/"));
    QCOMPARE(tree.pinnedLeaves(), (QVector<int>{3, 2}));
    QCOMPARE(tree.selectedLeaf(), 2);
    // A filter asks nothing of them.
    tree.setFilter(QStringLiteral("speed"));
    QCOMPARE(rowsOf(tree).size(), 4);
}

void tst_ValueTree::selectionFollowsWhatIsTakenDown()
{
    ValueTree tree(urls);
    tree.moveToLast();
    tree.togglePin();
    tree.moveToFirst();
    QCOMPARE(rowsOf(tree).first(), QStringLiteral("[*time]"));

    tree.togglePin();

    QCOMPARE(rowsOf(tree).last(), QStringLiteral("[time]"));
    QCOMPARE(tree.pinnedCount(), 0);
}

void tst_ValueTree::nodeIsNotPinned()
{
    ValueTree tree(urls);

    tree.togglePin();

    QCOMPARE(tree.pinnedCount(), 0);
}

void tst_ValueTree::manyLeavesAreQuick()
{
    QStringList many;
    for (int node = 0; node < 100; ++node) {
        for (int leaf = 0; leaf < 100; ++leaf) {
            many.append(QStringLiteral("node%1/leaf%2").arg(node).arg(leaf));
        }
    }
    ValueTree tree(many);
    std::vector<bool> invalid(10000, false);
    tree.setInvalidOnly(true);

    // Thirty of them are wanted in a second; nothing here may grow with the square of the leaves.
    for (std::size_t i = 0; i < 300; ++i) {
        invalid[i] = true;
        tree.setInvalid(invalid);
    }

    QCOMPARE(tree.shownLeafCount(), 300);
    QCOMPARE(tree.rows().size(), 303);
}

namespace {

class OneValue : public ShownValues
{
public:
    std::optional<ProcessValue> value(int leaf) const override
    {
        return ProcessValue(leaf, ProcessDataDefinitions::PROCESS_VALUE_ERROR_TYPE_VALID);
    }
    QString unit(int /*leaf*/) const override { return {}; }
};

} // namespace

void tst_ValueTree::trendsOfLongAgoAreForgottenButNotPinnedOnes()
{
    TrendMemory memory;
    const OneValue values;
    for (int leaf = 0; leaf < TrendMemory::sm_mostTrends; ++leaf) {
        memory.follow(leaf, {0});
    }
    memory.add(ValueTrend::Time(1), values);

    memory.follow(1000, {0});

    QVERIFY(memory.trend(0) != nullptr);
    QVERIFY(memory.trend(1) == nullptr);
    QVERIFY(memory.trend(2) != nullptr);
    QCOMPARE(memory.trend(2)->least(), std::make_optional(2.0));
    QVERIFY(memory.trend(1000)->points().empty());
    memory.add(1000, ValueTrend::Time(2), values);
    QCOMPARE(memory.trend(1000)->points().size(), std::size_t(1));
    QCOMPARE(memory.trend(2)->points().size(), std::size_t(1));
}

QTEST_GUILESS_MAIN(tst_ValueTree)
#include "tst_ValueTree.moc"
