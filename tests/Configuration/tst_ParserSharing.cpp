#include "Configuration/ConfigurationAndProcessDataParser.h"
#include "Configuration/ConfigurationDataAndProcessDescriptionAccess.h"
#include "Configuration/ConfigurationDataValue.h"
#include "RandomConfiguration.h"
#include "support/LogCapture.h"

#include <QtTest>

using Base = ConfigurationAndProcessDataBase;
using Element = Base::BaseClassSharedPointer;
using Parser = ConfigurationAndProcessDataParser;

namespace {

/// Compares each element of @p tree with one that was made of its JSON alone.
void compareWithLoneElements(const Element &tree, const QJsonObject &json)
{
    const Base::PropertyMap expected = Base(json, nullptr).getProperties();
    const Base::PropertyMap properties = tree->getProperties();
    QCOMPARE(properties, expected);
    for (auto property = expected.cbegin(); property != expected.cend(); ++property) {
        const QVariant value = properties.value(property.key());
        QCOMPARE(value.userType(), property.value().userType());
        QCOMPARE(value.isNull(), property.value().isNull());
    }
    const QJsonObject childs = json.value("value").toObject();
    for (auto child = tree->getChildMap().cbegin(); child != tree->getChildMap().cend(); ++child) {
        compareWithLoneElements(child.value(), childs.value(child.key()).toObject());
    }
}

const QChar *keyCharacters(const Element &element, const QString &key)
{
    const Base::PropertyMap properties = element->getProperties();
    return properties.constFind(key).key().constData();
}

const QChar *textCharacters(const Element &element, const QString &key)
{
    return element->getProperty(key).toString().constData();
}

/// Takes each message as a program that looks something up in a description of its own.
void readAnotherDescription(QtMsgType /*type*/, const QMessageLogContext & /*context*/,
                            const QString & /*text*/)
{
    Parser().parseFromByteArray(R"({"type":"treenode","value":{"x":{"type":"string"}}})",
                                "config.json");
}

} // namespace

class tst_ParserSharing : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();

    void elementsOfADescriptionAreAsIfMadeAlone();
    void elementsOfManyGroupsAreAsIfMadeAlone();
    void keysAndRepeatedTextsAreSharedWithinADescription();
    void keysOfChildrenAreSharedBetweenNodes();
    void textsAreSharedBetweenTheFilesOfADirectory();
    void nothingIsKeptForTheNextDescription();
    void anElementMadeAloneSharesNothing();
    void aChangeStaysWithItsElement();
    void whoeverTakesAMessageMayReadAnotherDescription_data();
    void whoeverTakesAMessageMayReadAnotherDescription();

private:
    QJsonObject m_description;
};

void tst_ParserSharing::init()
{
    const QJsonObject leaf{{"type", "int32"}, {"ownKey", "same"}, {"other", ""}};
    // Between equal leaves stands one of another shape.
    m_description = {{"type", "treenode"},
                     {"value", QJsonObject{{"a", leaf},
                                           {"b", QJsonObject{{"type", "string"}, {"z", "same"}}},
                                           {"c", leaf},
                                           {"d", leaf}}}};
}

void tst_ParserSharing::elementsOfADescriptionAreAsIfMadeAlone()
{
    const quint32 seed = QRandomGenerator::global()->generate();
    qInfo() << "seed" << seed;
    RandomConfiguration random(seed);
    LogCapture log;
    for (int i = 0; i < 200; ++i) {
        const QJsonObject description = random.description();

        const Element root = Parser().createNode(description, "config.json");

        QVERIFY(!root.isNull());
        compareWithLoneElements(root, description);
        if (QTest::currentTestFailed()) {
            return;
        }
    }
}

/// More groups than the values are remembered of that their elements have in common.
void tst_ParserSharing::elementsOfManyGroupsAreAsIfMadeAlone()
{
    constexpr int groups = 40;
    constexpr int leavesInEach = 16;
    QJsonObject children;
    for (int group = 0; group < groups; ++group) {
        const QString name = QStringLiteral("group%1").arg(group, 2, 10, QLatin1Char('0'));
        QJsonObject leaves;
        for (int i = 0; i < leavesInEach; ++i) {
            leaves.insert(QString::number(i), QJsonObject{{"type", "int32"},
                                                          {"one", name + QLatin1Char('1')},
                                                          {"other", name + QLatin1Char('2')},
                                                          {"third", group},
                                                          {"own", 100 * group + i}});
        }
        children.insert(name, QJsonObject{{"type", "treenode"}, {"value", leaves}});
    }
    // The first one once more, when it has long been forgotten.
    children.insert("last", children.value("group00"));
    const QJsonObject description{{"type", "treenode"}, {"value", children}};

    const Element root = Parser().createNode(description, "config.json");

    QVERIFY(!root.isNull());
    compareWithLoneElements(root, description);
    // A value that others have as well is changed for one alone.
    root->getLeaf("group00/3")->setProperty("other", "changed");
    QCOMPARE(root->getLeaf("group00/3")->getProperty("other"), QVariant("changed"));
    QCOMPARE(root->getLeaf("group00/4")->getProperty("other"), QVariant("group002"));
    QCOMPARE(root->getLeaf("last/3")->getProperty("other"), QVariant("group002"));
}

void tst_ParserSharing::keysAndRepeatedTextsAreSharedWithinADescription()
{
    const Element root = Parser().createNode(m_description, "config.json");

    const Element a = root->getLeaf("a");
    const Element c = root->getLeaf("c");
    const Element d = root->getLeaf("d");
    QCOMPARE(keyCharacters(a, "ownKey"), keyCharacters(c, "ownKey"));
    QCOMPARE(keyCharacters(a, "type"), keyCharacters(root->getLeaf("b"), "type"));
    QCOMPARE(textCharacters(a, "type"), textCharacters(c, "type"));
    QCOMPARE(textCharacters(c, "ownKey"), textCharacters(d, "ownKey"));
}

void tst_ParserSharing::keysOfChildrenAreSharedBetweenNodes()
{
    const QJsonObject group = m_description;
    const QJsonObject description{{"type", "treenode"},
                                  {"value", QJsonObject{{"first", group}, {"second", group}}}};
    const QByteArray text = QJsonDocument(description).toJson();

    for (const Element &root : {Parser().createNode(description, "config.json"),
                                Parser().parseFromByteArray(text, "config.json")}) {
        const Base::ChildMap &first = root->getLeaf("first")->getChildMap();
        const Base::ChildMap &second = root->getLeaf("second")->getChildMap();
        QCOMPARE(first.constFind("c").key().constData(), second.constFind("c").key().constData());
    }
}

void tst_ParserSharing::textsAreSharedBetweenTheFilesOfADirectory()
{
    const QTemporaryDir directory;
    for (const char *const name : {"x.config.json", "y.config.json"}) {
        QFile file(directory.filePath(name));
        QVERIFY(file.open(QIODevice::WriteOnly));
        file.write(R"({"type":"treenode","value":{"a":{"type":"string","labelTextId":"l.a"},)"
                   R"("b":{"type":"string","labelTextId":"l.b"}}})");
    }

    Element root;
    QVERIFY(ConfigurationDataAndProcessDescriptionAccess::parseConfigDir(
        root, QFileInfo(directory.path())));

    QCOMPARE(textCharacters(root->getLeaf("x/b"), "labelTextId"),
             textCharacters(root->getLeaf("y/b"), "labelTextId"));
    QCOMPARE(keyCharacters(root->getLeaf("x/b"), "labelTextId"),
             keyCharacters(root->getLeaf("y/b"), "labelTextId"));
    QCOMPARE(root->getLeaf("x/a")->getProperty("labelTextId"), QVariant("l.a"));
    QCOMPARE(root->getLeaf("y/b")->getProperty("labelTextId"), QVariant("l.b"));
}

void tst_ParserSharing::nothingIsKeptForTheNextDescription()
{
    const Element first = Parser().createNode(m_description, "config.json");
    const Element second = Parser().createNode(m_description, "config.json");

    QVERIFY(keyCharacters(first->getLeaf("a"), "ownKey")
            != keyCharacters(second->getLeaf("a"), "ownKey"));
}

void tst_ParserSharing::anElementMadeAloneSharesNothing()
{
    const QJsonObject json = m_description.value("value").toObject().value("a").toObject();

    const Element first(new ConfigurationDataValue(json, nullptr));
    const Element second(new ConfigurationDataValue(json, nullptr));

    QVERIFY(keyCharacters(first, "ownKey") != keyCharacters(second, "ownKey"));
    QCOMPARE(first->getProperties(), second->getProperties());
}

void tst_ParserSharing::aChangeStaysWithItsElement()
{
    const Element root = Parser().createNode(m_description, "config.json");

    root->getLeaf("c")->setProperty("ownKey", "changed");

    QCOMPARE(root->getLeaf("c")->getProperty("ownKey"), QVariant("changed"));
    QCOMPARE(root->getLeaf("a")->getProperty("ownKey"), QVariant("same"));
    QCOMPARE(root->getLeaf("d")->getProperty("ownKey"), QVariant("same"));
}

void tst_ParserSharing::whoeverTakesAMessageMayReadAnotherDescription_data()
{
    QTest::addColumn<bool>("isFromText");
    QTest::newRow("text") << true;
    QTest::newRow("JSON object") << false;
}

void tst_ParserSharing::whoeverTakesAMessageMayReadAnotherDescription()
{
    QFETCH(bool, isFromText);
    // A value that cannot be converted is worth a message.
    const QJsonObject leaf{{"type", "int32"}, {"unit", "bar"}, {"value", "seven"}, {"viewEnd", 9}};
    const QJsonObject description{{"type", "treenode"},
                                  {"value", QJsonObject{{"a", leaf}, {"b", leaf}}}};
    const QByteArray text = QJsonDocument(description).toJson();

    const QtMessageHandler former = qInstallMessageHandler(readAnotherDescription);
    const Element root = isFromText ? Parser().parseFromByteArray(text, "config.json")
                                    : Parser().createNode(description, "config.json");
    qInstallMessageHandler(former);

    const Base::PropertyMap expected{
        {"type", "int32"}, {"unit", "bar"}, {"value", QVariant()}, {"viewEnd", Q_INT64_C(9)}};
    QVERIFY(!root.isNull());
    QCOMPARE(root->getLeaf("a")->getProperties(), expected);
    QCOMPARE(root->getLeaf("b")->getProperties(), expected);
}

QTEST_GUILESS_MAIN(tst_ParserSharing)

#include "tst_ParserSharing.moc"
