#include "Configuration/ConfigurationAndProcessDataTreeNode.h"
#include "ProcessDataManagement/LayoutFingerprint.h"
#include "ProcessDescription.h"
#include "support/LogCapture.h"

#include <QJsonArray>

#include <functional>

namespace {

using Parts = LayoutFingerprint::Parts;

/// A number of a part of the buffer in which no leaf begins.
constexpr quint32 emptyPart = 0x4FD0BFC1;

ProcessDescription::Root parse(const QJsonObject &children)
{
    return ConfigurationAndProcessDataParser().createNode(
        QJsonObject{{QStringLiteral("type"), QStringLiteral("treenode")},
                    {QStringLiteral("value"), children}},
        PropertyManagerConst::getProcessDataDescriptionFileExtension());
}

QJsonObject leaf(const char *type, int offset, int sizeValue)
{
    return {{QStringLiteral("type"), QString::fromLatin1(type)},
            {QStringLiteral("offsetSharedMemory"), offset},
            {QStringLiteral("sizeValue"), sizeValue}};
}

/// Three leaves in 24 bytes, one of them below a node, whose name is not of ASCII alone.
QJsonObject threeLeaves()
{
    QJsonObject number = leaf("int32", 0, 4);
    number.insert(QStringLiteral("sizeMetadata"), 4);
    number.insert(QStringLiteral("relativeOffsetMetadata"), 4);
    QJsonObject bits = leaf("bit", 16, 1);
    bits.insert(QStringLiteral("bitmask"), 5);
    const QJsonObject node{
        {QStringLiteral("type"), QStringLiteral("treenode")},
        {QStringLiteral("value"), QJsonObject{{QStringLiteral("grün"), leaf("double", 8, 8)}}}};
    return {
        {QStringLiteral("a"), number}, {QStringLiteral("B"), bits}, {QStringLiteral("node"), node}};
}

QJsonObject changed(const char *key, const QJsonValue &value)
{
    QJsonObject children = threeLeaves();
    QJsonObject number = children.value(QStringLiteral("a")).toObject();
    number.insert(QString::fromLatin1(key), value);
    children.insert(QStringLiteral("a"), number);
    return children;
}

} // namespace

/// What another program computes by the reference must be the same number.
class tst_LayoutFingerprint : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void valueIsTheOneOfTheReference();
    void partsAreThoseOfTheReference();
    void layoutWithoutLeavesHasAValue();
    void everyWordOfASlotCounts_data();
    void everyWordOfASlotCounts();
    void textsDoNotCount();
    void nameCounts();
    void firstDifferenceIsTheFirstInTheBuffer();
    void equalLayoutsHaveNoDifference();
    void leafThatOnlyTheOthersHaveHasNoName();
    void leafBehindTheBufferCountsToTheLastPart();
};

void tst_LayoutFingerprint::valueIsTheOneOfTheReference()
{
    QCOMPARE(LayoutFingerprint(parse(threeLeaves())).getValue(), quint64{0xD321E18DD81ECCE7});
}

void tst_LayoutFingerprint::partsAreThoseOfTheReference()
{
    Parts expected{};
    expected.fill(emptyPart);
    expected[0] = 0xFDDD6603;
    expected[10] = 0xA9A99720;
    expected[21] = 0x7657793A;

    QCOMPARE(LayoutFingerprint(parse(threeLeaves())).getParts(24), expected);
}

void tst_LayoutFingerprint::layoutWithoutLeavesHasAValue()
{
    QCOMPARE(LayoutFingerprint({}).getValue(), quint64{0xCBF29CE484222325});
    QCOMPARE(LayoutFingerprint(parse({})).getValue(), quint64{0xCBF29CE484222325});
}

void tst_LayoutFingerprint::everyWordOfASlotCounts_data()
{
    QTest::addColumn<QString>("key");
    QTest::addColumn<QJsonValue>("value");

    QTest::newRow("type") << "type" << QJsonValue(QStringLiteral("uint32"));
    QTest::newRow("offset") << "offsetSharedMemory" << QJsonValue(1);
    QTest::newRow("size") << "sizeValue" << QJsonValue(2);
    QTest::newRow("distance") << "relativeOffsetMetadata" << QJsonValue(5);
    QTest::newRow("size of the error state") << "sizeMetadata" << QJsonValue(0);
    QTest::newRow("bit mask") << "bitmask" << QJsonValue(1);
}

void tst_LayoutFingerprint::everyWordOfASlotCounts()
{
    QFETCH(QString, key);
    QFETCH(QJsonValue, value);
    const LayoutFingerprint before(parse(threeLeaves()));
    const LayoutFingerprint after(parse(changed(key.toLatin1().constData(), value)));

    QVERIFY(after.getValue() != before.getValue());
    QCOMPARE(after.findFirstDifference(before.getParts(24), 24), QStringLiteral("a"));
}

void tst_LayoutFingerprint::textsDoNotCount()
{
    const LayoutFingerprint before(parse(threeLeaves()));

    QCOMPARE(LayoutFingerprint(parse(changed("unit", QStringLiteral("V")))).getValue(),
             before.getValue());
    QCOMPARE(LayoutFingerprint(parse(changed("readOnly", true))).getValue(), before.getValue());
}

void tst_LayoutFingerprint::nameCounts()
{
    QJsonObject children = threeLeaves();
    children.insert(QStringLiteral("A"), children.take(QStringLiteral("a")));

    QVERIFY(LayoutFingerprint(parse(children)).getValue()
            != LayoutFingerprint(parse(threeLeaves())).getValue());
}

void tst_LayoutFingerprint::firstDifferenceIsTheFirstInTheBuffer()
{
    QJsonObject children = threeLeaves();
    children.insert(QStringLiteral("B"), leaf("bit", 17, 1));
    children.insert(QStringLiteral("node"), leaf("double", 8, 8));
    const LayoutFingerprint own(parse(threeLeaves()));

    // `B` comes first among the names.
    QCOMPARE(own.findFirstDifference(LayoutFingerprint(parse(children)).getParts(24), 24),
             QStringLiteral("node/grün"));
}

void tst_LayoutFingerprint::equalLayoutsHaveNoDifference()
{
    const LayoutFingerprint own(parse(threeLeaves()));

    QCOMPARE(own.findFirstDifference(LayoutFingerprint(parse(threeLeaves())).getParts(24), 24),
             QString());
}

void tst_LayoutFingerprint::leafThatOnlyTheOthersHaveHasNoName()
{
    QJsonObject children = threeLeaves();
    children.insert(QStringLiteral("more"), leaf("int8", 20, 1));
    const LayoutFingerprint own(parse(threeLeaves()));
    const LayoutFingerprint others(parse(children));

    QVERIFY(own.getValue() != others.getValue());
    QCOMPARE(own.findFirstDifference(others.getParts(24), 24), QString());
    QCOMPARE(others.findFirstDifference(own.getParts(24), 24), QStringLiteral("more"));
}

void tst_LayoutFingerprint::leafBehindTheBufferCountsToTheLastPart()
{
    const LayoutFingerprint own(parse(threeLeaves()));
    Parts expected{};
    expected.fill(emptyPart);

    for (const quint32 size : {0U, 16U}) {
        QVERIFY(own.getParts(size)[31] != emptyPart);
    }
    QCOMPARE(LayoutFingerprint(parse({})).getParts(0), expected);
}

QTEST_GUILESS_MAIN(tst_LayoutFingerprint)

#include "tst_LayoutFingerprint.moc"
