#include "Configuration/ConfigurationAndProcessDataPropertyHandler.h"
#include "Configuration/ConfigurationDataValue.h"
#include "support/LogCapture.h"

#include <QtTest>

using Base = ConfigurationAndProcessDataBase;
using Handler = ConfigurationAndProcessDataPropertyHandler;
using Leaf = ConfigurationDataValue;
using PropertyMap = Handler::PropertyMap;

namespace {

constexpr int changed = 0;
constexpr int unchanged = 1;
constexpr int targetMissing = 2;
constexpr int pathInvalid = 4;

PropertyMap exampleProperties()
{
    const QVariantMap point{{"x", 1.5}, {"y", QVariantList{7, 8}}};
    const QVariantList table{QVariantList{11, 12}, QVariantList{21, QVariantList{31, 32}}};
    return {
        {"plain", 5},
        {"gone", QVariant()},
        {"map", QVariantMap{{"b", 2}, {"inner", QVariantMap{{"c", "deep"}, {"d", 1}}}}},
        {"hash", QVariantHash{{"b", 4}}},
        {"list", QVariantList{"zero", point}},
        {"table", table},
        {"words", QStringList{"one", "two"}},
        {"x1[0]", "literal"},
        {"", QVariantMap{{"b", "below nothing"}}},
    };
}

/// The value without the difference between the two kinds of map and of list, which a write does
/// not keep.
QVariant plainForm(const QVariant &value)
{
    if (value.canConvert(QMetaType::QVariantMap)) {
        QVariantMap map;
        const QVariantHash entries = value.toHash();
        for (auto entry = entries.cbegin(); entry != entries.cend(); ++entry) {
            map.insert(entry.key(), plainForm(entry.value()));
        }
        return map;
    }
    if (value.canConvert(QMetaType::QVariantList)) {
        QVariantList list;
        for (const QVariant &entry : value.toList()) {
            list.append(plainForm(entry));
        }
        return list;
    }
    return value;
}

QVariant plainForm(const PropertyMap &properties)
{
    return plainForm(QVariant(properties));
}

int write(PropertyMap &properties, const QString &path, const QVariant &value)
{
    return Handler::iteratePropertyMapForSettingValue(properties, path, value);
}

} // namespace

class tst_PropertyPathsWriting : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void aWriteChangesItsTargetAlone_data();
    void aWriteChangesItsTargetAlone();
    void aFailedWriteLeavesTheValues_data();
    void aFailedWriteLeavesTheValues();
    void anEmptyPathIsReported();
    void anEmptyIndexInsideIsNoNumber();
    void aNegativeIndexIsRefused();
    void withoutIndexAndPieceTheValueItselfIsTheTarget();

    void theStoredValueAgainIsUnchanged_data();
    void theStoredValueAgainIsUnchanged();
    void anEqualValueKeepsItsType();
    void theNoInputIndicatorIsAValueOfItsOwn_data();
    void theNoInputIndicatorIsAValueOfItsOwn();

    void siblingsSurviveANestedWrite();
    void mapsOnTheWayBecomeHashes();
    void mapsOnTheWayBecomeHashesWhateverTheStatus();
    void aTextListBecomesAListOfVariants();
    void aRefusedStepRewritesNothing();
    void copiesTakenBeforeStayAsTheyWere();

    void elementsReportDepthByStatus();
    void elementsWriteByPath();
};

void tst_PropertyPathsWriting::aWriteChangesItsTargetAlone_data()
{
    QTest::addColumn<QVariant>("former");

    QTest::newRow("plain") << QVariant(5);
    QTest::newRow("gone") << QVariant();
    QTest::newRow("map") << exampleProperties().value("map");
    QTest::newRow("map/b") << QVariant(2);
    QTest::newRow("map/inner/c") << QVariant("deep");
    QTest::newRow("hash/b") << QVariant(4);
    QTest::newRow("list[0]") << QVariant("zero");
    QTest::newRow("list[1]/x") << QVariant(1.5);
    QTest::newRow("list[1]/y[1]") << QVariant(8);
    QTest::newRow("table[0,1]") << QVariant(12);
    QTest::newRow("table[1,1,0]") << QVariant(31);
    QTest::newRow("words[1]") << QVariant("two");
    QTest::newRow("x1[0]") << QVariant("literal");
    QTest::newRow("/b") << QVariant("below nothing");
}

void tst_PropertyPathsWriting::aWriteChangesItsTargetAlone()
{
    QFETCH(QVariant, former);
    const QString path = QString::fromLatin1(QTest::currentDataTag());
    const QVariant value = QDate(2020, 2, 2);
    PropertyMap properties = exampleProperties();
    LogCapture log;

    QCOMPARE(write(properties, path, value), changed);

    QVariant result;
    Handler::iteratePropertyMapForGettingValue(properties, path, result);
    QCOMPARE(result, value);
    QCOMPARE(result.userType(), value.userType());

    // With the former value put back all is as it was, so nothing else was touched.
    QCOMPARE(write(properties, path, former), changed);
    QCOMPARE(plainForm(properties), plainForm(exampleProperties()));
    COMPARE_LOG(log);
}

void tst_PropertyPathsWriting::aFailedWriteLeavesTheValues_data()
{
    QTest::addColumn<int>("status");
    QTest::addColumn<QString>("message");

    const QString noKey = QStringLiteral("Key not found \"%1\"");
    const QString noMap = QStringLiteral("Propterty value is no map. \"%1\"");
    const QString noNumber = QStringLiteral("Can not convert Instanz to a number: \"%1\"");
    const QString outOfRange = QStringLiteral("The dimension is not correct: %1");
    QTest::newRow("missing") << pathInvalid << noKey.arg("missing");
    QTest::newRow("missing/b") << pathInvalid << noKey.arg("missing");
    QTest::newRow("missing[0]") << pathInvalid << noKey.arg("missing");
    QTest::newRow("Plain") << pathInvalid << noKey.arg("Plain");
    QTest::newRow("plain1[0]") << pathInvalid << noKey.arg("plain1[0]");
    QTest::newRow("map/missing") << targetMissing << noKey.arg("missing");
    QTest::newRow("map/missing/c") << targetMissing << noKey.arg("missing");
    QTest::newRow("map/inner/missing[1]") << targetMissing << noKey.arg("missing");
    QTest::newRow("map/") << targetMissing << noKey.arg("");
    QTest::newRow("map//b") << targetMissing << noKey.arg("");
    QTest::newRow("/") << targetMissing << noKey.arg("");
    QTest::newRow("list[1]/z") << targetMissing << noKey.arg("z");
    QTest::newRow("plain/") << targetMissing << noMap.arg("");
    QTest::newRow("plain/b") << targetMissing << noMap.arg("b");
    QTest::newRow("plain/b[1]/c") << targetMissing << noMap.arg("b");
    QTest::newRow("gone/b") << targetMissing << noMap.arg("b");
    QTest::newRow("list/b") << targetMissing << noMap.arg("b");
    QTest::newRow("list[0]/x") << targetMissing << noMap.arg("x");
    QTest::newRow("list[2]") << pathInvalid << outOfRange.arg(2);
    QTest::newRow("list[1]/y[2]") << pathInvalid << outOfRange.arg(2);
    QTest::newRow("table[1,2]") << pathInvalid << outOfRange.arg(2);
    QTest::newRow("list[99999999999]") << pathInvalid << noNumber.arg("99999999999");
    QTest::newRow("table[1,]") << pathInvalid << noNumber.arg("");
    QTest::newRow("plain[0]") << pathInvalid << QString();
    QTest::newRow("plain[99999999999]") << pathInvalid << QString();
    QTest::newRow("map[0]") << pathInvalid << QString();
    QTest::newRow("gone[0]") << pathInvalid << QString();
    QTest::newRow("list[0,0]") << pathInvalid << QString();
    QTest::newRow("table[0,0,0]") << pathInvalid << QString();
}

void tst_PropertyPathsWriting::aFailedWriteLeavesTheValues()
{
    QFETCH(int, status);
    QFETCH(QString, message);
    PropertyMap properties = exampleProperties();
    LogCapture log;

    QCOMPARE(write(properties, QString::fromLatin1(QTest::currentDataTag()), "new"), status);

    QCOMPARE(log.take(), message.isNull() ? QList<LogLine>() : QList<LogLine>{warning(message)});
    QCOMPARE(plainForm(properties), plainForm(exampleProperties()));
}

void tst_PropertyPathsWriting::anEmptyPathIsReported()
{
    PropertyMap properties = exampleProperties();
    LogCapture log;

    QCOMPARE(write(properties, QString(), 1), pathInvalid);

    COMPARE_LOG(log, warning("Key is empty"));
    QCOMPARE(properties, exampleProperties());
}

void tst_PropertyPathsWriting::anEmptyIndexInsideIsNoNumber()
{
    const QVariantList inner{1, QVariantList{2, 3}};
    PropertyMap properties{{"x", QVariantList{0, inner}}};
    const PropertyMap before = properties;
    LogCapture log;

    QCOMPARE(write(properties, "x[1,,1]", 9), pathInvalid);

    COMPARE_LOG(log, warning("Can not convert Instanz to a number: \"\""));
    QCOMPARE(properties, before);
}

void tst_PropertyPathsWriting::aNegativeIndexIsRefused()
{
    QVariant value = QVariantList{1, 2};
    LogCapture log;

    QCOMPARE(int(Handler::iteratePropertiesForSettingValues(value, {}, {"-1"}, 9)), pathInvalid);
    COMPARE_LOG(log, warning("The dimension is not correct: -1"));
    QCOMPARE(int(Handler::iteratePropertiesForSettingValues(value, {}, {"one"}, 9)), pathInvalid);
    COMPARE_LOG(log, warning("Can not convert Instanz to a number: \"one\""));
    QCOMPARE(int(Handler::iteratePropertiesForSettingValues(value, {}, {"0x1"}, 9)), pathInvalid);
    COMPARE_LOG(log, warning("Can not convert Instanz to a number: \"0x1\""));

    QCOMPARE(value, QVariant(QVariantList{1, 2}));
}

void tst_PropertyPathsWriting::withoutIndexAndPieceTheValueItselfIsTheTarget()
{
    QVariant value = 1;
    LogCapture log;

    QCOMPARE(int(Handler::iteratePropertiesForSettingValues(value, {}, {}, 1)), unchanged);
    QCOMPARE(int(Handler::iteratePropertiesForSettingValues(value, {}, {}, "two")), changed);

    QCOMPARE(value, QVariant("two"));
    COMPARE_LOG(log);
}

void tst_PropertyPathsWriting::theStoredValueAgainIsUnchanged_data()
{
    QTest::addColumn<QString>("path");

    QTest::newRow("plain") << "plain";
    QTest::newRow("gone") << "gone";
    QTest::newRow("map") << "map";
    QTest::newRow("map/inner") << "map/inner";
    QTest::newRow("hash/b") << "hash/b";
    QTest::newRow("list") << "list";
    QTest::newRow("list[1]/y[0]") << "list[1]/y[0]";
    QTest::newRow("table[1,1]") << "table[1,1]";
    QTest::newRow("words") << "words";
}

void tst_PropertyPathsWriting::theStoredValueAgainIsUnchanged()
{
    QFETCH(QString, path);
    PropertyMap properties = exampleProperties();
    QVariant stored;
    Handler::iteratePropertyMapForGettingValue(properties, path, stored);
    LogCapture log;

    QCOMPARE(write(properties, path, stored), unchanged);

    QCOMPARE(plainForm(properties), plainForm(exampleProperties()));
    COMPARE_LOG(log);
}

void tst_PropertyPathsWriting::anEqualValueKeepsItsType()
{
    PropertyMap properties{{"a", 1}, {"b", QVariantList{2.0}}};

    QCOMPARE(write(properties, "a", "1"), unchanged);
    QCOMPARE(write(properties, "a", 1.0), unchanged);
    QCOMPARE(write(properties, "b[0]", 2), unchanged);

    QCOMPARE(properties.value("a").userType(), int(QMetaType::Int));
    QCOMPARE(properties.value("b").toList().first().userType(), int(QMetaType::Double));
}

void tst_PropertyPathsWriting::theNoInputIndicatorIsAValueOfItsOwn_data()
{
    QTest::addColumn<QVariant>("stored");
    QTest::addColumn<QVariant>("written");
    QTest::addColumn<int>("status");

    const QVariant noInput(QVariant::Int);
    QTest::newRow("indicator over 0") << QVariant(0) << noInput << changed;
    QTest::newRow("0 over indicator") << noInput << QVariant(0) << changed;
    QTest::newRow("indicator over indicator") << noInput << noInput << unchanged;
    QTest::newRow("0 over 0") << QVariant(0) << QVariant(0) << unchanged;
    QTest::newRow("indicator over invalid") << QVariant() << noInput << changed;
    QTest::newRow("invalid over indicator") << noInput << QVariant() << changed;
    QTest::newRow("text of 0 over indicator") << noInput << QVariant("0") << changed;
    QTest::newRow("double indicator over 0.0")
        << QVariant(0.0) << QVariant(QVariant::Double) << changed;
}

void tst_PropertyPathsWriting::theNoInputIndicatorIsAValueOfItsOwn()
{
    QFETCH(QVariant, stored);
    QFETCH(QVariant, written);
    QFETCH(int, status);
    PropertyMap properties{{"value", stored},
                           {"nested", QVariantMap{{"list", QVariantList{stored}}}}};

    for (const char *path : {"value", "nested/list[0]"}) {
        QCOMPARE(write(properties, path, written), status);

        QVariant result;
        Handler::iteratePropertyMapForGettingValue(properties, path, result);
        QCOMPARE(result.userType(), written.userType());
        QCOMPARE(result.isNull(), written.isNull());
    }
}

void tst_PropertyPathsWriting::siblingsSurviveANestedWrite()
{
    PropertyMap properties{
        {"a", QVariantMap{{"b", 1}, {"c", "kept"}, {"d", QVariantMap{{"e", 2}}}}}};

    QCOMPARE(write(properties, "a/b", 9), changed);

    QCOMPARE(plainForm(properties.value("a")),
             QVariant(QVariantMap{{"b", 9}, {"c", "kept"}, {"d", QVariantMap{{"e", 2}}}}));
}

void tst_PropertyPathsWriting::mapsOnTheWayBecomeHashes()
{
    PropertyMap properties = exampleProperties();

    QCOMPARE(write(properties, "map/inner/c", 1), changed);
    QCOMPARE(write(properties, "list[1]/x", 1), changed);

    const QVariant map = properties.value("map");
    QCOMPARE(map.userType(), int(QMetaType::QVariantHash));
    QCOMPARE(map.toHash().value("inner").userType(), int(QMetaType::QVariantHash));
    QCOMPARE(properties.value("list").userType(), int(QMetaType::QVariantList));
    QCOMPARE(properties.value("list").toList().at(1).userType(), int(QMetaType::QVariantHash));

    // The next walk goes through both kinds alike.
    LogCapture log;
    QVariant result;
    Handler::iteratePropertyMapForGettingValue(properties, "map/inner/d", result);
    QCOMPARE(result, QVariant(1));
    QCOMPARE(write(properties, "map/inner/c", 2), changed);
    COMPARE_LOG(log);
}

void tst_PropertyPathsWriting::mapsOnTheWayBecomeHashesWhateverTheStatus()
{
    PropertyMap properties = exampleProperties();
    LogCapture log;

    QCOMPARE(write(properties, "map/b", 2), unchanged);
    QCOMPARE(properties.value("map").userType(), int(QMetaType::QVariantHash));

    properties = exampleProperties();
    QCOMPARE(write(properties, "map/inner/missing", 2), targetMissing);

    const QVariant map = properties.value("map");
    QCOMPARE(map.userType(), int(QMetaType::QVariantHash));
    QCOMPARE(map.toHash().value("inner").userType(), int(QMetaType::QVariantMap));
    QCOMPARE(plainForm(properties), plainForm(exampleProperties()));
    COMPARE_LOG(log, warning("Key not found \"missing\""));
}

void tst_PropertyPathsWriting::aTextListBecomesAListOfVariants()
{
    PropertyMap properties = exampleProperties();

    QCOMPARE(write(properties, "words[0]", 1), changed);

    QCOMPARE(properties.value("words").userType(), int(QMetaType::QVariantList));
    QCOMPARE(properties.value("words").toList(), (QVariantList{1, "two"}));

    properties = exampleProperties();
    QCOMPARE(write(properties, "words[0]", "one"), unchanged);

    QCOMPARE(properties.value("words").userType(), int(QMetaType::QVariantList));
    QCOMPARE(properties.value("words").toList(), (QVariantList{"one", "two"}));
}

void tst_PropertyPathsWriting::aRefusedStepRewritesNothing()
{
    PropertyMap properties = exampleProperties();
    LogCapture log;

    QCOMPARE(write(properties, "map/missing", 1), targetMissing);
    QCOMPARE(write(properties, "words[2]", 1), pathInvalid);

    QCOMPARE(properties.value("map").userType(), int(QMetaType::QVariantMap));
    QCOMPARE(properties.value("words").userType(), int(QMetaType::QStringList));
    COMPARE_LOG(log, warning("Key not found \"missing\""),
                warning("The dimension is not correct: 2"));
}

void tst_PropertyPathsWriting::copiesTakenBeforeStayAsTheyWere()
{
    PropertyMap properties = exampleProperties();
    const PropertyMap copy = properties;

    QCOMPARE(write(properties, "table[0,0]", 99), changed);
    QCOMPARE(write(properties, "map/b", 99), changed);

    QCOMPARE(copy, exampleProperties());
}

void tst_PropertyPathsWriting::elementsReportDepthByStatus()
{
    Leaf leaf({{"type", "record"}, {"a", QJsonObject{{"b", 1}}}}, nullptr);
    LogCapture log;

    QCOMPARE(leaf.setProperty("missing", 1), Base::SetValuePropertyPathInvalid);
    COMPARE_LOG(log, warning("Key not found \"missing\""));
    QCOMPARE(leaf.setProperty("missing/b", 1), Base::SetValuePropertyPathInvalid);
    COMPARE_LOG(log, warning("Key not found \"missing\""));
    QCOMPARE(leaf.setProperty("a/missing", 1), Base::SetValueTargetMissing);
    COMPARE_LOG(log, warning("Key not found \"missing\""));
    QCOMPARE(leaf.setPropertyNoSignalEmit("type/x", 1), Base::SetValueTargetMissing);
    COMPARE_LOG(log, warning("Propterty value is no map. \"x\""));

    QCOMPARE(leaf.getProperties().size(), 2);
    QCOMPARE(leaf.getProperty("a/b"), QVariant(1));
}

void tst_PropertyPathsWriting::elementsWriteByPath()
{
    const QJsonArray points{QJsonObject{{"x", 1}, {"y", 2}}, QJsonObject{{"x", 3}}};
    Leaf leaf({{"points", points}}, nullptr);
    LogCapture log;

    QCOMPARE(leaf.setProperty("points[0]/x", 8), Base::SetValueChanged);
    QCOMPARE(leaf.setPropertyNoSignalEmit("points[1]/x", 9), Base::SetValueChanged);

    QCOMPARE(leaf.getProperty("points[0]/x"), QVariant(8));
    QCOMPARE(leaf.getProperty("points[0]/y"), QVariant(2));
    QCOMPARE(leaf.getProperty("points[1]/x"), QVariant(9));
    COMPARE_LOG(log);
}

QTEST_GUILESS_MAIN(tst_PropertyPathsWriting)

#include "tst_PropertyPathsWriting.moc"
