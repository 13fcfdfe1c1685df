#include "Configuration/ConfigurationAndProcessDataParser.h"
#include "support/HeapWatch.h"

#include <QtTest>

using Base = ConfigurationAndProcessDataBase;
using Element = Base::BaseClassSharedPointer;
using Parser = ConfigurationAndProcessDataParser;

namespace {

constexpr int leafCount = 400;
constexpr int longTextSize = 1 << 20;

Element treeOfLeaves()
{
    QJsonObject leaves;
    for (int i = 0; i < leafCount; ++i) {
        leaves.insert(QStringLiteral("leaf%1").arg(i),
                      QJsonObject{{"type", "string"}, {"value", "short"}, {"unit", ""}});
    }
    return Parser().createNode({{"type", "treenode"}, {"value", leaves}}, "config.json");
}

/// A leaf with a long text below so many nodes.
Element treeOfDepth(int depth)
{
    QJsonObject description{{"type", "string"}, {"value", QString(longTextSize, 'x')}};
    for (int i = 0; i < depth; ++i) {
        description = {{"type", "treenode"}, {"value", QJsonObject{{"node", description}}}};
    }
    return Parser().createNode(description, "config.json");
}

/// Each copy of a text takes room of its own.
qint64 takenByFraming(const Element &root, QJsonDocument::JsonFormat format)
{
    const HeapWatch heap;
    QByteArray text;
    return Parser().frameToByteArray(root, text, format) ? heap.takenBytes() : -1;
}

/// The leaf that is framed as the one with that number.
Element leafInTurn(const Element &root, int number)
{
    return std::next(root->getChildMap().cbegin(), number).value();
}

/// Of a size that counts, in the forms that a description writes as text.
QVariant longText(const QString &form)
{
    if (form == "bytes") {
        return QByteArray(longTextSize, 'x');
    }
    return QString(longTextSize, form == "escaped" ? QChar('\n') : QChar('x'));
}

void addOrders()
{
    QTest::addColumn<int>("seed");
    QTest::addColumn<int>("number");
    QTest::addColumn<QString>("form");
    for (const int seed : {0, 1, 4711, 987654321}) {
        for (const int number : {0, 1, 2, 3, leafCount - 1}) {
            for (const char *form : {"plain", "escaped", "bytes"}) {
                QTest::addRow("%s text in leaf %d with seed %d", form, number, seed)
                    << seed << number << form;
            }
        }
    }
}

} // namespace

Q_DECLARE_METATYPE(QJsonDocument::JsonFormat)

/// What framing takes from the heap beside what comes out of it. Elements are framed in the order
/// of a hash, and the long text may come anywhere in it.
class tst_FramingMemory : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void aJsonObjectTakesASmallMultipleOfItsText_data();
    void aJsonObjectTakesASmallMultipleOfItsText();
    void aTextTakesASmallMultipleOfItself_data();
    void aTextTakesASmallMultipleOfItself();
    void leavesDoNotCarryATextThatOnlyTheFirstShared();
    void aTextIsCopiedAsOftenInADeepTreeAsInAFlatOne_data();
    void aTextIsCopiedAsOftenInADeepTreeAsInAFlatOne();
};

void tst_FramingMemory::initTestCase()
{
    if (!HeapWatch::canWatch()) {
        QSKIP("the sanitizer has a heap of its own", );
    }
    // It would win over the seeds of the rows.
    qunsetenv("QT_HASH_SEED");
}

void tst_FramingMemory::aJsonObjectTakesASmallMultipleOfItsText_data()
{
    addOrders();
}

void tst_FramingMemory::aJsonObjectTakesASmallMultipleOfItsText()
{
    QFETCH(int, seed);
    QFETCH(int, number);
    QFETCH(QString, form);
    qSetGlobalQHashSeed(seed);
    const Element root = treeOfLeaves();
    leafInTurn(root, number)->setProperty("value", longText(form));

    const HeapWatch heap;
    const QJsonObject json = Parser().createJsonObject(root);
    const qint64 peak = heap.peakBytes();

    QCOMPARE(json.value("value").toObject().size(), leafCount);
    // The object has the text once, in room that grew by doubling, and a copy is on its way into it.
    QVERIFY2(peak < 8 * qint64{longTextSize}, qPrintable(QString::number(peak)));
}

void tst_FramingMemory::aTextTakesASmallMultipleOfItself_data()
{
    addOrders();
}

void tst_FramingMemory::aTextTakesASmallMultipleOfItself()
{
    QFETCH(int, seed);
    QFETCH(int, number);
    QFETCH(QString, form);
    qSetGlobalQHashSeed(seed);
    const Element root = treeOfLeaves();
    leafInTurn(root, number)->setProperty("value", longText(form));

    const HeapWatch heap;
    QByteArray text;
    QVERIFY(Parser().frameToByteArray(root, text, QJsonDocument::Compact));
    const qint64 peak = heap.peakBytes();

    QVERIFY2(peak < 8 * qint64{text.size()}, qPrintable(QString::number(peak)));
}

void tst_FramingMemory::leavesDoNotCarryATextThatOnlyTheFirstShared()
{
    constexpr int size = 1 << 16;
    const Element root = treeOfLeaves();
    for (int i = 0; i < leafCount; ++i) {
        const QChar own = i < 2 ? QChar('x') : QChar('a' + i % 26);
        leafInTurn(root, i)->setProperty("value", QString(i < 2 ? size : 1, own));
    }

    const HeapWatch heap;
    const QJsonObject json = Parser().createJsonObject(root);

    QCOMPARE(json.value("value").toObject().size(), leafCount);
    QVERIFY2(heap.peakBytes() < 2 * 8 * qint64{size} + (1 << 20),
             qPrintable(QString::number(heap.peakBytes())));
}

void tst_FramingMemory::aTextIsCopiedAsOftenInADeepTreeAsInAFlatOne_data()
{
    QTest::addColumn<QJsonDocument::JsonFormat>("format");
    QTest::newRow("compact") << QJsonDocument::Compact;
    QTest::newRow("indented") << QJsonDocument::Indented;
}

void tst_FramingMemory::aTextIsCopiedAsOftenInADeepTreeAsInAFlatOne()
{
    QFETCH(QJsonDocument::JsonFormat, format);

    const qint64 takenInFlatTree = takenByFraming(treeOfDepth(1), format);
    const qint64 takenInDeepTree = takenByFraming(treeOfDepth(100), format);

    QVERIFY(takenInFlatTree > 0);
    // The nodes have their own texts, whose lines are indented.
    QVERIFY2(takenInDeepTree - takenInFlatTree < longTextSize,
             qPrintable(QString::number(takenInDeepTree - takenInFlatTree)));
}

QTEST_GUILESS_MAIN(tst_FramingMemory)

#include "tst_FramingMemory.moc"
