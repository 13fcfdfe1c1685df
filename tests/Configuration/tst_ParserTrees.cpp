#include "Configuration/ConfigurationAndProcessDataParser.h"
#include "Configuration/ConfigurationAndProcessDataTreeNode.h"
#include "Configuration/ConfigurationDataValue.h"
#include "support/LogCapture.h"

#include <QJsonParseError>
#include <QSignalSpy>

#include <functional>
#include <thread>
#include <vector>

namespace {

using Base = ConfigurationAndProcessDataBase;

const QString configurationPostfix = QStringLiteral("config.json");
/// How deep the toolkit lets objects and arrays of one document lie in each other.
const int deepestNesting = 1024;

Base::BaseClassSharedPointer parse(const QByteArray &json)
{
    return ConfigurationAndProcessDataParser().parseFromByteArray(json, configurationPostfix);
}

/// A tree comes from a text, or from an object that somebody else has read.
void addOrigins()
{
    QTest::addColumn<bool>("isObject");

    QTest::newRow("text") << false;
    QTest::newRow("object") << true;
}

Base::BaseClassSharedPointer make(const QByteArray &json, bool isObject)
{
    if (!isObject) {
        return parse(json);
    }
    const QJsonObject object = QJsonDocument::fromJson(json).object();
    return ConfigurationAndProcessDataParser().createNode(object, configurationPostfix);
}

QJsonObject withVersion(const QJsonValue &version)
{
    return {{"type", "treenode"}, {"value", QJsonObject()}, {"schemeVersion", version}};
}

QByteArray toText(const QJsonObject &json)
{
    return QJsonDocument(json).toJson();
}

/// Tree nodes in each other, each under the key "n". One node makes two levels of nesting.
QByteArray nestedNodes(int count)
{
    const QByteArray opening = R"({"type":"treenode","value":{)";
    return opening + QByteArray("\"n\":" + opening).repeated(count - 1)
           + QByteArray("}}").repeated(count);
}

/// Parses a lot and adds up what stands at "a".
void addParsedValues(const QByteArray &json, int &sum)
{
    for (int i = 0; i < 200; ++i) {
        const auto root = parse(json);
        sum += root.isNull() ? 0 : root->getLeaf("a")->getProperty("value").toInt();
    }
}

} // namespace

class tst_ParserTrees : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void supportedVersionIsAccepted();
    void missingVersionIsAccepted();
    void versionThatIsNoIntegerIsAccepted_data();
    void versionThatIsNoIntegerIsAccepted();
    void otherVersionIsRefused_data();
    void otherVersionIsRefused();
    void otherVersionIsReportedAndParsed();
    void versionCheckCanBeSwitchedOff();
    void versionIsAskedOfTheDocumentOnly();
    void versionIsReportedBeforeTheElements();

    void changeOfALeafReachesEveryAncestor_data() { addOrigins(); }
    void changeOfALeafReachesEveryAncestor();
    void signalWithArgumentsStaysAtTheLeaf_data() { addOrigins(); }
    void signalWithArgumentsStaysAtTheLeaf();
    void changeOfANodeReachesItsAncestorsOnly_data() { addOrigins(); }
    void changeOfANodeReachesItsAncestorsOnly();
    void applicationCanSilenceAPartOfTheTree();
    void releasedRootReleasesTheTree();
    void childOutlivesItsTree();

    void deepestDocumentParses();
    void tooDeepDocumentIsAParsingError();
    void deepestValueParses();
    void threadsParseWithParsersOfTheirOwn();
};

void tst_ParserTrees::supportedVersionIsAccepted()
{
    LogCapture log;

    QVERIFY(ConfigurationAndProcessDataParser().checkVersion(withVersion(1)));
    QVERIFY(!parse(toText(withVersion(1))).isNull());
    COMPARE_LOG(log);
}

void tst_ParserTrees::missingVersionIsAccepted()
{
    LogCapture log;

    QVERIFY(ConfigurationAndProcessDataParser().checkVersion(QJsonObject()));
    QVERIFY(!parse(R"({"type":"treenode","value":{}})").isNull());
    COMPARE_LOG(log);
}

void tst_ParserTrees::versionThatIsNoIntegerIsAccepted_data()
{
    QTest::addColumn<QJsonValue>("version");

    QTest::newRow("text") << QJsonValue("2");
    QTest::newRow("null") << QJsonValue();
    QTest::newRow("boolean") << QJsonValue(true);
    QTest::newRow("object") << QJsonValue(QJsonObject{{"major", 2}});
}

void tst_ParserTrees::versionThatIsNoIntegerIsAccepted()
{
    QFETCH(QJsonValue, version);
    LogCapture log;

    QVERIFY(ConfigurationAndProcessDataParser().checkVersion(withVersion(version)));
    COMPARE_LOG(log);
}

void tst_ParserTrees::otherVersionIsRefused_data()
{
    QTest::addColumn<int>("version");

    QTest::newRow("next") << 2;
    QTest::newRow("zero") << 0;
    QTest::newRow("negative") << -1;
    QTest::newRow("large") << 2147483647;
}

void tst_ParserTrees::otherVersionIsRefused()
{
    QFETCH(int, version);
    LogCapture log;

    QVERIFY(!ConfigurationAndProcessDataParser().checkVersion(withVersion(version)));
    COMPARE_LOG(
        log,
        warning(QStringLiteral("Received incompatible scheme version: %1 , 1 !").arg(version)));
}

void tst_ParserTrees::otherVersionIsReportedAndParsed()
{
    LogCapture log;

    const auto root = parse(R"({"schemeVersion":2,"type":"treenode","value":{
        "a":{"type":"int32","value":5}}})");

    COMPARE_LOG(log, warning("Received incompatible scheme version: 2 , 1 !"));
    QVERIFY(!root.isNull());
    QCOMPARE(root->getLeafConfigurationData("a")->getValue(), QVariant(5));
    QCOMPARE(root->getProperty("schemeVersion").toInt(), 2);
}

void tst_ParserTrees::versionCheckCanBeSwitchedOff()
{
    ConfigurationAndProcessDataParser parser;
    LogCapture log;

    parser.setCheckVersion(false);
    QVERIFY(parser.checkVersion(withVersion(2)));
    QVERIFY(!parser.parseFromByteArray(toText(withVersion(2)), configurationPostfix).isNull());
    COMPARE_LOG(log);

    parser.setCheckVersion(true);
    QVERIFY(!parser.checkVersion(withVersion(2)));
    COMPARE_LOG(log, warning("Received incompatible scheme version: 2 , 1 !"));
}

void tst_ParserTrees::versionIsAskedOfTheDocumentOnly()
{
    LogCapture log;

    const auto root = parse(R"({"type":"treenode","value":{
        "a":{"type":"int32","value":5,"schemeVersion":2}}})");
    const auto node = ConfigurationAndProcessDataParser().createNode(withVersion(2),
                                                                     configurationPostfix);

    COMPARE_LOG(log);
    QVERIFY(!root.isNull());
    QVERIFY(!node.isNull());
}

void tst_ParserTrees::versionIsReportedBeforeTheElements()
{
    LogCapture log;

    QVERIFY(parse(R"({"schemeVersion":3})").isNull());
    COMPARE_LOG(log, warning("Received incompatible scheme version: 3 , 1 !"),
                warning("key 'type' not found in JSON object"));
}

void tst_ParserTrees::changeOfALeafReachesEveryAncestor()
{
    QFETCH(bool, isObject);
    const auto root = make(R"({"type":"treenode","value":{
        "a":{"type":"treenode","value":{
            "b":{"type":"int32","value":1},"c":{"type":"int32","value":1}}},
        "d":{"type":"treenode","value":{}}}})",
                           isObject);
    QVERIFY(!root.isNull());
    const auto leaf = root->getLeafConfigurationData("a/b");
    QSignalSpy atRoot(root.data(), QOverload<>::of(&Base::propertyChanged));
    QSignalSpy atNode(root->getLeaf("a").data(), QOverload<>::of(&Base::propertyChanged));
    QSignalSpy atSibling(root->getLeaf("a/c").data(), QOverload<>::of(&Base::propertyChanged));
    QSignalSpy atOtherNode(root->getLeaf("d").data(), QOverload<>::of(&Base::propertyChanged));

    QCOMPARE(leaf->setValue(2), Base::SetValueChanged);

    QCOMPARE(atRoot.count(), 1);
    QCOMPARE(atNode.count(), 1);
    QCOMPARE(atSibling.count(), 0);
    QCOMPARE(atOtherNode.count(), 0);

    QCOMPARE(leaf->setValue(2), Base::SetValueUnchanged);
    QCOMPARE(leaf->setValueNoSignalEmit(3), Base::SetValueChanged);
    QCOMPARE(atRoot.count(), 1);
}

void tst_ParserTrees::signalWithArgumentsStaysAtTheLeaf()
{
    QFETCH(bool, isObject);
    using WithArguments = void (Base::*)(const QString &, const QVariant &);
    const WithArguments withArguments = &Base::propertyChanged;
    const auto root = make(R"({"type":"treenode","value":{"a":{"type":"int32","value":1}}})",
                           isObject);
    QVERIFY(!root.isNull());
    const auto leaf = root->getLeafConfigurationData("a");
    QSignalSpy atRoot(root.data(), withArguments);
    QSignalSpy atLeaf(leaf.data(), withArguments);

    QCOMPARE(leaf->setValue(2), Base::SetValueChanged);

    QCOMPARE(atLeaf.count(), 1);
    QCOMPARE(atRoot.count(), 0);
}

void tst_ParserTrees::changeOfANodeReachesItsAncestorsOnly()
{
    QFETCH(bool, isObject);
    const auto root = make(R"({"type":"treenode","value":{"a":{"type":"treenode","unit":"m",
        "value":{"b":{"type":"int32","value":1}}}}})",
                           isObject);
    QVERIFY(!root.isNull());
    QSignalSpy atRoot(root.data(), QOverload<>::of(&Base::propertyChanged));
    QSignalSpy atLeaf(root->getLeaf("a/b").data(), QOverload<>::of(&Base::propertyChanged));

    QCOMPARE(root->getLeaf("a")->setProperty("unit", "mm"), Base::SetValueChanged);

    QCOMPARE(atRoot.count(), 1);
    QCOMPARE(atLeaf.count(), 0);
}

/// As any connection by the address of a signal, which is what an application gives.
void tst_ParserTrees::applicationCanSilenceAPartOfTheTree()
{
    const auto changed = QOverload<>::of(&Base::propertyChanged);
    const auto root = parse(R"({"type":"treenode","value":{
        "a":{"type":"int32","value":1},"b":{"type":"int32","value":1}}})");
    QVERIFY(!root.isNull());
    const auto leaf = root->getLeafConfigurationData("a");
    QSignalSpy atRoot(root.data(), changed);

    QVERIFY(!QObject::connect(leaf.data(), changed, root.data(), changed, Qt::UniqueConnection));
    QVERIFY(QObject::disconnect(leaf.data(), changed, root.data(), changed));

    QCOMPARE(leaf->setValue(2), Base::SetValueChanged);
    QCOMPARE(atRoot.count(), 0);
    QCOMPARE(root->getLeafConfigurationData("b")->setValue(2), Base::SetValueChanged);
    QCOMPARE(atRoot.count(), 1);
}

void tst_ParserTrees::releasedRootReleasesTheTree()
{
    auto root = parse(R"({"type":"treenode","value":{
        "a":{"type":"treenode","value":{"b":{"type":"int32","value":1}}}}})");
    QVERIFY(!root.isNull());
    const auto node = root->getLeaf("a").toWeakRef();
    const auto leaf = root->getLeaf("a/b").toWeakRef();
    QVERIFY(!leaf.isNull());

    root.clear();

    QVERIFY(node.isNull());
    QVERIFY(leaf.isNull());
}

void tst_ParserTrees::childOutlivesItsTree()
{
    auto root = parse(R"({"type":"treenode","value":{"a":{"type":"int32","value":1}}})");
    QVERIFY(!root.isNull());
    const auto leaf = root->getLeafConfigurationData("a");

    root.clear();

    QCOMPARE(leaf->setValue(2), Base::SetValueChanged);
    QCOMPARE(leaf->getValue(), QVariant(2));
}

void tst_ParserTrees::deepestDocumentParses()
{
    const int count = deepestNesting / 2;
    const QByteArray json = nestedNodes(count);
    LogCapture log;

    auto root = parse(json);

    COMPARE_LOG(log);
    QVERIFY(!root.isNull());
    QStringList pieces;
    for (int i = 1; i < count; ++i) {
        pieces.append("n");
    }
    QVERIFY(root->isUrlValid(pieces.join('/')));
    QVERIFY(!root->isUrlValid(pieces.join('/') + "/n"));
    QByteArray framed;
    QVERIFY(
        ConfigurationAndProcessDataParser().frameToByteArray(root, framed, QJsonDocument::Compact));
    QCOMPARE(framed.size(), json.size());
    QVERIFY(!parse(framed).isNull());
    root.clear();
}

void tst_ParserTrees::tooDeepDocumentIsAParsingError()
{
    const QByteArray json = nestedNodes(deepestNesting / 2 + 1);
    QJsonParseError error;
    QJsonDocument::fromJson(json, &error);
    QCOMPARE(error.error, QJsonParseError::DeepNesting);
    LogCapture log;

    QVERIFY(parse(json).isNull());
    COMPARE_LOG(log, warning(QStringLiteral("Parsing error:  \"%1\"").arg(error.errorString())));

    const QByteArray hostile = QByteArray(R"({"type":"treenode","value":)").repeated(1000000);
    QVERIFY(parse(hostile).isNull());
    COMPARE_LOG(log, warning(QStringLiteral("Parsing error:  \"%1\"").arg(error.errorString())));
}

void tst_ParserTrees::deepestValueParses()
{
    const int depth = deepestNesting - 1;
    LogCapture log;

    const auto leaf = parse(R"({"type":"array","value":)" + QByteArray("[").repeated(depth)
                            + QByteArray("]").repeated(depth) + "}");

    COMPARE_LOG(log);
    QVERIFY(!leaf.isNull());
    QVariant value = leaf->getProperty("value");
    int found = 1;
    while (!value.toList().isEmpty()) {
        const QVariant inner = value.toList().constFirst();
        value = inner;
        ++found;
    }
    QCOMPARE(found, depth);
}

void tst_ParserTrees::threadsParseWithParsersOfTheirOwn()
{
    const QByteArray json = R"({"type":"treenode","value":{"a":{"type":"int32","value":7}}})";
    QList<int> sums{0, 0, 0, 0};
    std::vector<std::thread> threads;
    LogCapture log;

    for (int &sum : sums) {
        threads.emplace_back(addParsedValues, json, std::ref(sum));
    }
    for (auto &thread : threads) {
        thread.join();
    }

    COMPARE_LOG(log);
    QCOMPARE(sums, (QList<int>{1400, 1400, 1400, 1400}));
}

QTEST_GUILESS_MAIN(tst_ParserTrees)
#include "tst_ParserTrees.moc"
