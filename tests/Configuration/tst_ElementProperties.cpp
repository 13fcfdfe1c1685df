#include "Configuration/ConfigurationAndProcessDataParser.h"
#include "Configuration/ConfigurationDataValue.h"
#include "Configuration/ElementProperties.h"

#include <QtTest>

#include <utility>

// The properties of an element are used like a hash, whatever they are kept in.

using Base = ConfigurationAndProcessDataBase;
using Parser = ConfigurationAndProcessDataParser;

namespace {

/// What a class of an application does with the properties that it inherits.
class OwnLeaf : public ConfigurationDataValue
{
public:
    explicit OwnLeaf(const QJsonObject &json) : ConfigurationDataValue(json, nullptr) { }

    int countByIteration() const
    {
        int count = 0;
        for (auto property = m_properties.cbegin(); property != m_properties.cend(); ++property) {
            count += m_properties.value(property.key()) == property.value() ? 1 : 0;
        }
        return count;
    }
    PropertyMap copied() const { return m_properties; }
    void changeKeys()
    {
        m_properties["added"] = 1;
        m_properties.insert("inserted", 2);
        m_properties.remove("unit");
    }
    bool hasUnit() const { return m_properties.contains("unit"); }
};

/// Of an element that was read from @p text, and so has its keys from a shape.
ElementProperties parsedFrom(const QByteArray &text)
{
    struct Opened : Base
    {
        static const ElementProperties &of(const Base &element)
        {
            return element.*(&Opened::m_properties);
        }
    };
    return Opened::of(*Parser().parseFromByteArray(text, "config.json"));
}

ElementProperties parsedProperties()
{
    return parsedFrom(R"({"type":"int32","value":7,"unit":"bar","viewStart":0,"labelTextId":"l"})");
}

ElementProperties::Map expectedMap()
{
    ElementProperties::Map map;
    map.insert("labelTextId", "l");
    map.insert("type", "int32");
    map.insert("unit", "bar");
    map.insert("value", 7);
    map.insert("viewStart", Q_INT64_C(0));
    return map;
}

} // namespace

class tst_ElementProperties : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void aDerivedClassUsesThemAsAHash();
    void keysAreFoundWithoutAHash();
    void keysThatLookAlikeAreToldApart();
    void anyNumberOfKeysIsFound_data();
    void anyNumberOfKeysIsFound();
    void entriesStandAsInAHashFromTheBeginning();
    void aPathLeadsPastAKeyThatLooksLikeIt();
    void aCopyIsOnItsOwn();
    void aCopyOfAHashIsOnItsOwn();
    void aWriteNeverAddsAKey();
    void newKeysAreAdded();
    void thereMayBeNone();
};

void tst_ElementProperties::aDerivedClassUsesThemAsAHash()
{
    OwnLeaf leaf({{"type", "int32"}, {"value", 7}, {"unit", "bar"}});

    QCOMPARE(leaf.countByIteration(), 3);
    QVERIFY(leaf.hasUnit());
    leaf.changeKeys();

    QVERIFY(!leaf.hasUnit());
    QCOMPARE(leaf.copied(),
             (Base::PropertyMap{{"type", "int32"}, {"value", 7}, {"added", 1}, {"inserted", 2}}));
}

void tst_ElementProperties::keysAreFoundWithoutAHash()
{
    const ElementProperties properties = parsedProperties();

    QCOMPARE(properties.size(), 5);
    QVERIFY(properties.contains("unit"));
    QVERIFY(!properties.contains("Unit"));
    QCOMPARE(properties.value("value"), QVariant(7));
    QCOMPARE(properties.value("missing", 3), QVariant(3));
    QCOMPARE(properties.get("missing"), nullptr);
}

void tst_ElementProperties::keysThatLookAlikeAreToldApart()
{
    const ElementProperties properties = parsedFrom(
        R"({"type":"string","axbyc":1,"aybxc":2,"azbc":3,"abc":4,"":5})");

    QCOMPARE(properties.value("axbyc"), QVariant(Q_INT64_C(1)));
    QCOMPARE(properties.value("aybxc"), QVariant(Q_INT64_C(2)));
    QCOMPARE(properties.value("azbc"), QVariant(Q_INT64_C(3)));
    QCOMPARE(properties.value("abc"), QVariant(Q_INT64_C(4)));
    QCOMPARE(properties.value(""), QVariant(Q_INT64_C(5)));
    QCOMPARE(properties.get("axbxc"), nullptr);
    QCOMPARE(properties.get("aabc"), nullptr);
}

void tst_ElementProperties::anyNumberOfKeysIsFound_data()
{
    QTest::addColumn<int>("count");
    for (const int count : {1, 12, 23, 24, 25, 200}) {
        QTest::addRow("%d", count) << count;
    }
}

void tst_ElementProperties::anyNumberOfKeysIsFound()
{
    QFETCH(int, count);
    QByteArray text = R"({"type":"string")";
    for (int i = 1; i < count; ++i) {
        text += QByteArray(",\"key") + QByteArray::number(i) + "\":" + QByteArray::number(i);
    }

    const ElementProperties properties = parsedFrom(text + '}');

    QCOMPARE(properties.size(), count);
    QCOMPARE(properties.value("type"), QVariant("string"));
    for (int i = 1; i < count; ++i) {
        QCOMPARE(properties.value("key" + QString::number(i)), QVariant(qint64(i)));
    }
    QVERIFY(!properties.contains("key" + QString::number(count)));
}

void tst_ElementProperties::entriesStandAsInAHashFromTheBeginning()
{
    ElementProperties properties = parsedProperties();
    ElementProperties::Map expected = expectedMap();
    QCOMPARE(properties.toMap().keys(), expected.keys());
    QCOMPARE(properties.toMap(), expected);

    for (int i = 0; i < 40; ++i) {
        properties.insert(QString::number(i), i);
        expected.insert(QString::number(i), i);
    }
    properties.remove("type");
    expected.remove("type");

    QCOMPARE(properties.keys(), expected.keys());
    QCOMPARE(properties.toMap(), expected);
}

void tst_ElementProperties::aPathLeadsPastAKeyThatLooksLikeIt()
{
    const auto leaf = Parser().parseFromByteArray(
        R"({"type":"string","a/b":1,"a":{"b":2},"c[0]":3,"c":[4]})", "config.json");

    QCOMPARE(leaf->getProperty("a/b"), QVariant(2));
    QCOMPARE(leaf->getProperty("c[0]"), QVariant(4));
    QCOMPARE(leaf->setProperty("a/b", 5), Base::SetValueChanged);

    QCOMPARE(leaf->getProperty("a/b"), QVariant(5));
    QCOMPARE(leaf->getProperties().value("a/b"), QVariant(1));
}

void tst_ElementProperties::aCopyIsOnItsOwn()
{
    ElementProperties properties = parsedProperties();
    ElementProperties copied = properties;

    *properties.get("value") = 8;
    copied.remove("unit");

    QCOMPARE(copied.value("value"), QVariant(7));
    QCOMPARE(properties.value("value"), QVariant(8));
    QVERIFY(properties.contains("unit"));
    copied = properties;
    QCOMPARE(copied, properties);
}

void tst_ElementProperties::aCopyOfAHashIsOnItsOwn()
{
    ElementProperties properties(expectedMap());
    ElementProperties copied(properties);

    QCOMPARE(copied.toMap(), expectedMap());
    *properties.get("value") = 8;
    copied.remove("unit");

    QCOMPARE(copied.value("value"), QVariant(7));
    QCOMPARE(copied.size(), 4);
    QCOMPARE(properties.value("value"), QVariant(8));
    QVERIFY(properties.contains("unit"));
    copied = properties;
    QCOMPARE(copied, properties);
}

void tst_ElementProperties::aWriteNeverAddsAKey()
{
    ElementProperties properties = parsedProperties();

    QCOMPARE(properties.get("missing"), nullptr);
    QVERIFY(properties.get("unit") != nullptr);
    properties.map();
    QCOMPARE(properties.get("missing"), nullptr);
    *properties.get("unit") = "mm";

    QCOMPARE(properties.value("unit"), QVariant("mm"));
    QCOMPARE(properties.size(), 5);
}

void tst_ElementProperties::newKeysAreAdded()
{
    ElementProperties properties;

    properties["a"] = 1;
    properties.insert("b", 2);

    QCOMPARE(properties.toMap(), (ElementProperties::Map{{"a", 1}, {"b", 2}}));
    QCOMPARE(properties.take("a"), QVariant(1));
    QCOMPARE(properties.size(), 1);
}

void tst_ElementProperties::thereMayBeNone()
{
    const ElementProperties properties;

    QVERIFY(properties.isEmpty());
    QVERIFY(properties.toMap().isEmpty());
    QVERIFY(!properties.contains("a"));
    QCOMPARE(properties.cbegin(), properties.cend());
    QVERIFY(properties == ElementProperties());
    ElementProperties written;
    QCOMPARE(written.get("a"), nullptr);
    QVERIFY(written.isEmpty());
}

QTEST_GUILESS_MAIN(tst_ElementProperties)

#include "tst_ElementProperties.moc"
