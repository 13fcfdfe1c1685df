#include "Configuration/ConfigurationAndProcessDataParser.h"
#include "Configuration/ConfigurationDataValue.h"
#include "Configuration/OwnProperties_p.h"
#include "support/LogCapture.h"

#include <QtTest>

#include <cmath>

// Values that siblings have in common are held once, and nobody can tell.

using Base = ConfigurationAndProcessDataBase;
using Element = Base::BaseClassSharedPointer;

namespace {

Element parse(const QJsonObject &children)
{
    const QJsonObject root{{"type", "treenode"}, {"value", children}};
    return ConfigurationAndProcessDataParser().parseFromByteArray(QJsonDocument(root).toJson(),
                                                                  "config.json");
}

QString nameOf(int number)
{
    return QStringLiteral("leaf%1").arg(number, 4, 10, QLatin1Char('0'));
}

QJsonObject leafOf(int number)
{
    return {
        {"type", "int32"},  {"value", number}, {"minLimit", -5},    {"maxLimit", 5000},
        {"unit", "bar"},    {"viewEnd", 0.5},  {"readOnly", false}, {"labelTextId", nameOf(number)},
        {"viewStart", 7000}};
}

Element parseLeaves(int count)
{
    QJsonObject children;
    for (int i = 0; i < count; ++i) {
        children.insert(nameOf(i), leafOf(i));
    }
    return parse(children);
}

const QVariant *placeOf(const Element &root, int number, const QString &key)
{
    return ownProperties(*root->getLeaf(nameOf(number))).get(key);
}

/// The properties as a lone element has them, in every respect.
void compareProperties(const Element &element, const Element &lone)
{
    const Base::PropertyMap properties = element->getProperties();
    const Base::PropertyMap expected = lone->getProperties();
    QCOMPARE(properties, expected);
    for (auto property = expected.cbegin(); property != expected.cend(); ++property) {
        const QVariant value = properties.value(property.key());
        QCOMPARE(value.userType(), property.value().userType());
        QCOMPARE(value.isNull(), property.value().isNull());
        QCOMPARE(element->getProperty(property.key()), lone->getProperty(property.key()));
        QCOMPARE(element->hasProperty(property.key()), lone->hasProperty(property.key()));
    }
}

/// Draws from few values, so that many leaves have many in common.
class RandomLeaves
{
public:
    explicit RandomLeaves(quint32 seed) : m_random(seed) { }

    int below(int bound) { return static_cast<int>(m_random.bounded(bound)); }

    QJsonValue value()
    {
        static const QList<QJsonValue> values{0,
                                              1,
                                              0.0,
                                              0.25,
                                              true,
                                              false,
                                              "",
                                              "0",
                                              "bar",
                                              "mm",
                                              QJsonValue(),
                                              "Inf",
                                              -7,
                                              5000000000.,
                                              QJsonArray{1, 2},
                                              QJsonObject{{"a", 1}}};
        return values.at(below(values.size()));
    }
    QJsonObject leaf()
    {
        static const QStringList types{"int32", "double", "string", "bool"};
        QJsonObject leaf{{"type", types.at(below(types.size()))}};
        for (const char *const key : {"value", "minLimit", "unit", "viewStart", "viewEnd", "x"}) {
            // Mostly the same one.
            leaf.insert(key, below(4) == 0 ? value() : QJsonValue(key));
        }
        if (below(8) == 0) {
            leaf.insert("further", value());
        }
        return leaf;
    }
    QString key()
    {
        static const QStringList keys{"type",    "value", "minLimit", "unit",    "viewStart",
                                      "viewEnd", "x",     "further",  "missing", "x/a"};
        return keys.at(below(keys.size()));
    }

private:
    QRandomGenerator m_random;
};

/// The same write to both, which have to answer the same.
void writeToBoth(RandomLeaves &random, const Element &element, const Element &lone)
{
    const QString key = random.key();
    const QVariant value = random.value().toVariant();
    switch (random.below(8)) {
    case 0:
        element->removeProperties({key});
        lone->removeProperties({key});
        return;
    case 1:
        element->addProperty(key, value);
        lone->addProperty(key, value);
        return;
    default: QCOMPARE(element->setProperty(key, value), lone->setProperty(key, value));
    }
}

} // namespace

class tst_SiblingValues : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void equalValuesAreHeldOnce();
    void differentKindsOfSiblingsHoldTheirValuesOnceEach();
    void aWriteStaysWithItsElement();
    void anEqualWriteChangesNothing();
    void aValueOfTheElementItselfCanBeWritten();
    void placesToBeWrittenStay();
    void aCopyIsOnItsOwn();
    void nothingEnteredIsNoZero();
    void valuesThatAreOnlyEqualStayApart();
    void onlyTheElementThatIsWrittenTellsOfIt();
    void aRemovalStaysWithItsElement();
    void siblingsAreAsIfMadeAloneAndStaySo();
};

void tst_SiblingValues::equalValuesAreHeldOnce()
{
    const Element root = parseLeaves(40);

    for (const char *const key :
         {"type", "minLimit", "maxLimit", "unit", "viewStart", "viewEnd", "readOnly"}) {
        QCOMPARE(placeOf(root, 39, key), placeOf(root, 38, key));
    }
    QVERIFY(placeOf(root, 39, "value") != placeOf(root, 38, "value"));
    QCOMPARE(*placeOf(root, 39, "value"), QVariant(39));
    QCOMPARE(*placeOf(root, 38, "labelTextId"), QVariant(nameOf(38)));
}

void tst_SiblingValues::differentKindsOfSiblingsHoldTheirValuesOnceEach()
{
    QJsonObject children;
    for (int i = 0; i < 60; ++i) {
        QJsonObject leaf = leafOf(i);
        leaf.insert("unit", QString::number(i % 6));
        leaf.insert("maxLimit", 100 + i % 6);
        leaf.insert("minLimit", i % 6);
        children.insert(nameOf(i), leaf);
    }

    const Element root = parse(children);

    QCOMPARE(placeOf(root, 58, "unit"), placeOf(root, 52, "unit"));
    QCOMPARE(placeOf(root, 59, "unit"), placeOf(root, 53, "unit"));
    QCOMPARE(*placeOf(root, 58, "unit"), QVariant("4"));
    QCOMPARE(*placeOf(root, 59, "maxLimit"), QVariant(105));
}

void tst_SiblingValues::aWriteStaysWithItsElement()
{
    const Element root = parseLeaves(40);
    const Element leaf = root->getLeaf(nameOf(39));

    QCOMPARE(leaf->setProperty("unit", "mm"), Base::SetValueChanged);
    QCOMPARE(leaf->setProperty("value", 1), Base::SetValueChanged);

    QCOMPARE(leaf->getProperty("unit"), QVariant("mm"));
    QCOMPARE(leaf->getProperty("value"), QVariant(1));
    QCOMPARE(leaf->getProperty("viewStart"), QVariant(7000));
    QCOMPARE(leaf->getProperty("labelTextId"), QVariant(nameOf(39)));
    QCOMPARE(root->getLeaf(nameOf(38))->getProperty("unit"), QVariant("bar"));
    QCOMPARE(root->getLeaf(nameOf(38))->getProperty("value"), QVariant(38));
}

void tst_SiblingValues::anEqualWriteChangesNothing()
{
    const Element root = parseLeaves(40);

    QCOMPARE(root->getLeaf(nameOf(39))->setProperty("unit", "bar"), Base::SetValueUnchanged);

    QCOMPARE(placeOf(root, 39, "unit"), placeOf(root, 38, "unit"));
}

void tst_SiblingValues::aValueOfTheElementItselfCanBeWritten()
{
    const Element root = parseLeaves(40);
    const Element leaf = root->getLeaf(nameOf(39));

    QCOMPARE(leaf->setProperty("unit", *placeOf(root, 39, "labelTextId")), Base::SetValueChanged);

    QCOMPARE(leaf->getProperty("unit"), QVariant(nameOf(39)));
    QCOMPARE(leaf->getProperty("labelTextId"), QVariant(nameOf(39)));
}

void tst_SiblingValues::placesToBeWrittenStay()
{
    const Element root = parseLeaves(40);
    ElementProperties properties = ownProperties(*root->getLeaf(nameOf(39)));

    QVariant *const value = properties.get("value");
    QVariant *const unit = properties.get("unit");
    *value = 3;
    *unit = "mm";

    QCOMPARE(properties.get("value"), value);
    QCOMPARE(properties.value("value"), QVariant(3));
    QCOMPARE(properties.value("unit"), QVariant("mm"));
    QCOMPARE(properties.value("maxLimit"), QVariant(5000));
}

void tst_SiblingValues::aCopyIsOnItsOwn()
{
    const Element root = parseLeaves(40);
    ElementProperties properties = ownProperties(*root->getLeaf(nameOf(39)));
    const ElementProperties copied = properties;

    *properties.get("unit") = "mm";
    properties.remove("value");

    QCOMPARE(copied.value("unit"), QVariant("bar"));
    QCOMPARE(copied.value("value"), QVariant(39));
    QCOMPARE(copied.toMap().size(), 9);
    QCOMPARE(*placeOf(root, 39, "unit"), QVariant("bar"));
}

void tst_SiblingValues::nothingEnteredIsNoZero()
{
    QJsonObject children;
    for (int i = 0; i < 40; ++i) {
        QJsonObject leaf = leafOf(0);
        leaf.insert("value", i % 2 == 0 ? QJsonValue() : QJsonValue(0));
        children.insert(nameOf(i), leaf);
    }

    const Element root = parse(children);

    for (int i = 0; i < 40; ++i) {
        compareProperties(
            root->getLeaf(nameOf(i)),
            Element(new ConfigurationDataValue(children.value(nameOf(i)).toObject(), nullptr)));
    }
}

void tst_SiblingValues::valuesThatAreOnlyEqualStayApart()
{
    const QList<QByteArray> texts{"0",    "-0.0", "0.0",  "1",          "1.0",   "1e0",
                                  "true", "\"\"", "null", "4294967296", "\"0\"", "false"};
    const auto leafText = [&](int i) {
        const QByteArray value = texts.at(i % texts.size());
        return QByteArray("{\"type\":\"double\",\"unit\":\"bar\",\"readOnly\":false,\"value\":")
               + value + ",\"viewStart\":" + value
               + ",\"viewEnd\":" + texts.at(i / 3 % texts.size()) + "}";
    };
    const auto parseText = [](const QByteArray &children) {
        return ConfigurationAndProcessDataParser().parseFromByteArray(
            "{\"type\":\"treenode\",\"value\":{" + children + "}}", "config.json");
    };
    QByteArray children;
    for (int i = 0; i < 96; ++i) {
        children += (i == 0 ? "\"" : ",\"") + nameOf(i).toUtf8() + "\":" + leafText(i);
    }

    const Element root = parseText(children);

    for (int i = 0; i < 96; ++i) {
        const Element leaf = root->getLeaf(nameOf(i));
        const Element lone = parseText("\"lone\":" + leafText(i))->getLeaf(QStringLiteral("lone"));
        compareProperties(leaf, lone);
        for (const char *const key : {"value", "viewStart", "viewEnd"}) {
            const QVariant value = leaf->getProperty(key);
            const QVariant expected = lone->getProperty(key);
            QCOMPARE(std::signbit(value.toDouble()), std::signbit(expected.toDouble()));
            QCOMPARE(value.toString().isNull(), expected.toString().isNull());
        }
    }
}

void tst_SiblingValues::onlyTheElementThatIsWrittenTellsOfIt()
{
    const Element root = parseLeaves(40);
    const Element leaf = root->getLeaf(nameOf(39));
    const Element sibling = root->getLeaf(nameOf(38));
    QSignalSpy told(leaf.data(),
                    QOverload<const QString &, const QVariant &>::of(&Base::propertyChanged));
    QSignalSpy toldBySibling(
        sibling.data(), QOverload<const QString &, const QVariant &>::of(&Base::propertyChanged));

    leaf->setProperty("unit", "mm");
    leaf->setProperty("unit", "mm");

    QCOMPARE(told.size(), 1);
    QCOMPARE(told.first(), QVariantList({"unit", "mm"}));
    QCOMPARE(toldBySibling.size(), 0);
}

void tst_SiblingValues::aRemovalStaysWithItsElement()
{
    const Element root = parseLeaves(40);
    const Element leaf = root->getLeaf(nameOf(39));

    leaf->removeProperties({"unit", "value"});
    leaf->addProperty("maxLimit", 1);

    QVERIFY(!leaf->hasProperty("unit"));
    QCOMPARE(leaf->getProperty("maxLimit"), QVariant(1));
    QCOMPARE(leaf->getProperty("viewStart"), QVariant(7000));
    const Element lone(new ConfigurationDataValue(leafOf(38), nullptr));
    compareProperties(root->getLeaf(nameOf(38)), lone);
}

void tst_SiblingValues::siblingsAreAsIfMadeAloneAndStaySo()
{
    const quint32 seed = QRandomGenerator::global()->generate();
    qInfo() << "seed" << seed;
    RandomLeaves random(seed);
    LogCapture log;
    for (int round = 0; round < 20; ++round) {
        QJsonObject children;
        for (int i = 0; i < 120; ++i) {
            children.insert(nameOf(i), random.leaf());
        }
        const Element root = parse(children);
        QVector<Element> lone;
        for (int i = 0; i < children.size(); ++i) {
            lone.append(
                Element(new ConfigurationDataValue(children.value(nameOf(i)).toObject(), nullptr)));
        }
        for (int write = 0; write < 400; ++write) {
            const int number = random.below(lone.size());
            writeToBoth(random, root->getLeaf(nameOf(number)), lone.at(number));
        }
        for (int i = 0; i < lone.size(); ++i) {
            compareProperties(root->getLeaf(nameOf(i)), lone.at(i));
            if (QTest::currentTestFailed()) {
                return;
            }
        }
    }
}

QTEST_GUILESS_MAIN(tst_SiblingValues)

#include "tst_SiblingValues.moc"
