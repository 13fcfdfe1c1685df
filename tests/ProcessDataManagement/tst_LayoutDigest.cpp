#include "ProcessDataManagement/LayoutDigest_p.h"
#include "ProcessDataManagement/LayoutTrees.h"

#include <QtTest>

// The order of leaves in a layout is that of the bytes of their URLs, however the tree is gone through.

using namespace LayoutTrees;

namespace {

/// In the order in which they tell two leaves of one URL apart.
const QVector<const char *> slotKeys{
    "type", "offsetSharedMemory", "sizeValue", "relativeOffsetMetadata", "sizeMetadata", "bitmask"};

/// Of two leaves that are alike before @p first, the one that comes first. Behind @p first it has the
/// higher words.
QJsonObject lowerLeaf(int first, bool isLower)
{
    QJsonObject leaf;
    for (int i = 0; i < slotKeys.size(); ++i) {
        const bool isHigh = i == first ? !isLower : i > first && isLower;
        leaf.insert(QString::fromLatin1(slotKeys[i]),
                    i == 0 ? QJsonValue(isHigh ? QStringLiteral("uint32") : QStringLiteral("int32"))
                           : QJsonValue(isHigh ? 300 : 8));
    }
    return leaf;
}

/// Nodes with a leaf each, and beside each node a leaf of the same URL. Every second one of the latter comes
/// first; with @p isTurned the others do.
Root parsePairs(int first, bool isTurned)
{
    constexpr int pairs = 24;
    QJsonObject children;
    for (int i = 0; i < pairs; ++i) {
        const QString name = QStringLiteral("node%1").arg(i);
        const bool isLower = (i % 2 == 0) != isTurned;
        children.insert(name, nodeOf({{QStringLiteral("b"), lowerLeaf(first, !isLower)}}));
        children.insert(name + QStringLiteral("/b"), lowerLeaf(first, isLower));
    }
    return parse(children);
}

QList<QByteArray> urlsOf(const std::vector<LayoutLeaf> &leaves)
{
    QList<QByteArray> urls;
    for (const auto &leaf : leaves) {
        urls.append(leaf.url);
    }
    return urls;
}

} // namespace

class tst_LayoutDigest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void nothingIsBelowANullRoot();
    void nodesStandAmongLeavesByTheirSlash();
    void leavesComeOneByOneInTheOrderOfTheirUrls();
    void aSlashInANameIsToldWhenLeavesComeOneByOne();
    void leavesStandInTheOrderOfTheirUrls_data();
    void leavesStandInTheOrderOfTheirUrls();
    void leavesOfOneUrlStandInTheOrderOfTheirSlots_data();
    void leavesOfOneUrlStandInTheOrderOfTheirSlots();
};

void tst_LayoutDigest::nothingIsBelowANullRoot()
{
    QVERIFY(layoutLeavesOf({}).empty());
    QCOMPARE(LayoutDigest::valueOf(Root()), LayoutFingerprint(Root()).getValue());
}

void tst_LayoutDigest::nodesStandAmongLeavesByTheirSlash()
{
    const Root root = parse({{QStringLiteral("a"), nodeOf({{QStringLiteral("c"), leafAt(0)}})},
                             {QStringLiteral("a-b"), leafAt(4)},
                             {QStringLiteral("a0"), leafAt(8)}});

    QCOMPARE(urlsOf(layoutLeavesOf(root)), QList<QByteArray>({"a-b", "a/c", "a0"}));
}

void tst_LayoutDigest::leavesComeOneByOneInTheOrderOfTheirUrls()
{
    const Root root = parse({{QStringLiteral("b"), nodeOf({{QStringLiteral("z"), leafAt(0)},
                                                           {QStringLiteral("grün"), leafAt(4)}})},
                             {QStringLiteral("a"), leafAt(8)},
                             {QStringLiteral("c"), leafAt(12)}});
    QList<QByteArray> urls;
    QList<quint32> offsets;

    const bool isTaken = takeLayoutLeavesOf(root, [&](const LayoutLeaf &leaf) {
        urls.append(QByteArray(leaf.url.constData(), leaf.url.size()));
        offsets.append(leaf.offset);
    });

    QVERIFY(isTaken);
    QCOMPARE(urls, QList<QByteArray>({"a", "b/grün", "b/z", "c"}));
    QCOMPARE(offsets, QList<quint32>({8, 4, 0, 12}));
}

void tst_LayoutDigest::aSlashInANameIsToldWhenLeavesComeOneByOne()
{
    const Root root = parse({{QStringLiteral("a"), nodeOf({{QStringLiteral("c"), leafAt(0)}})},
                             {QStringLiteral("a/b"), leafAt(4)}});

    QVERIFY(!takeLayoutLeavesOf(root, [](const LayoutLeaf &) {}));
    QCOMPARE(urlsOf(layoutLeavesOf(root)), QList<QByteArray>({"a/b", "a/c"}));
}

void tst_LayoutDigest::leavesStandInTheOrderOfTheirUrls_data()
{
    QTest::addColumn<bool>("hasSlashes");

    QTest::newRow("plain names") << false;
    QTest::newRow("names with slashes") << true;
}

void tst_LayoutDigest::leavesStandInTheOrderOfTheirUrls()
{
    QFETCH(bool, hasSlashes);
    const quint32 seed = QRandomGenerator::global()->generate();
    qInfo() << "seed" << seed;
    for (quint32 i = 0; i < 300; ++i) {
        RandomTree random(seed + i, hasSlashes);
        const Root root = parse(random.children(3, {}));

        QCOMPARE(urlsOf(layoutLeavesOf(root)), random.urls());
        QCOMPARE(LayoutDigest::valueOf(root), LayoutFingerprint(root).getValue());
        const LayoutDigest::Numbers numbers = LayoutDigest::numbersOf(root, 64);
        QCOMPARE(numbers.value, LayoutFingerprint(root).getValue());
        QVERIFY(numbers.parts == LayoutFingerprint(root).getParts(64));
    }
}

void tst_LayoutDigest::leavesOfOneUrlStandInTheOrderOfTheirSlots_data()
{
    QTest::addColumn<int>("first");

    for (int i = 0; i < slotKeys.size(); ++i) {
        QTest::newRow(slotKeys[i]) << i;
    }
}

/// The children of a node come in an order that each process has by chance.
void tst_LayoutDigest::leavesOfOneUrlStandInTheOrderOfTheirSlots()
{
    QFETCH(int, first);
    const Root root = parsePairs(first, false);

    const std::vector<LayoutLeaf> leaves = layoutLeavesOf(root);

    for (std::size_t i = 0; i + 1 < leaves.size(); i += 2) {
        const LayoutLeaf &low = leaves[i];
        const LayoutLeaf &high = leaves[i + 1];
        QCOMPARE(low.url, high.url);
        const QVector<bool> isLower{low.type < high.type,
                                    low.offset < high.offset,
                                    low.sizeValue < high.sizeValue,
                                    low.relativeOffsetMetadata < high.relativeOffsetMetadata,
                                    low.sizeMetadata < high.sizeMetadata,
                                    low.bitmask < high.bitmask};
        QCOMPARE(isLower.indexOf(true), first);
    }
    QCOMPARE(leaves.size(), std::size_t{48});
    QCOMPARE(LayoutDigest::valueOf(root), LayoutDigest::valueOf(parsePairs(first, true)));
}

QTEST_GUILESS_MAIN(tst_LayoutDigest)

#include "tst_LayoutDigest.moc"
