#include "Configuration/ConfigurationAndProcessDataTools.h"
#include "Configuration/ConfigurationAndProcessDataTreeNode.h"
#include "Configuration/ConfigurationDataValue.h"
#include "support/LogCapture.h"

#include <QDateTime>

namespace {

using Base = ConfigurationAndProcessDataBase;
using Tools = ConfigurationAndProcessDataTools;

Base::BaseClassSharedPointer leafOfType(const QJsonValue &type)
{
    return QSharedPointer<ConfigurationDataValue>::create(QJsonObject{{"type", type}}, nullptr);
}

/// An element that answers for its type in its own way.
class ElementWithOwnType : public ConfigurationDataValue
{
public:
    explicit ElementWithOwnType(const QVariant &type)
        : ConfigurationDataValue(QJsonObject{{"type", "string"}}, nullptr)
        , m_type(type)
    {
    }
    QVariant getProperty(const QString &key) const override
    {
        return key == QLatin1String("type") ? m_type : QVariant();
    }

private:
    QVariant m_type;
};

} // namespace

class tst_DataTypes : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void typeNames_data();
    void typeNames();
    void elementIsJudgedByItsTypeName_data();
    void elementIsJudgedByItsTypeName();
    void nullElementIsOfNoType();
    void elementWithoutTypeIsOfNoType();
    void typeThatIsNoTextIsNoType_data();
    void typeThatIsNoTextIsNoType();
    void elementIsAskedThroughGetProperty();

    void numbersAmongTheVariants_data();
    void numbersAmongTheVariants();

    void indicatorIsATypeWithoutAValue_data();
    void indicatorIsATypeWithoutAValue();
    void indicatorReadsAsZero();
    void indicatorOfNoTypeIsNoIndicator();
    void valuesAreNoIndicator_data();
    void valuesAreNoIndicator();
};

void tst_DataTypes::typeNames_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<bool>("isNumber");
    QTest::addColumn<bool>("isSelector");

    for (const char *number : {"int8", "int16", "int32", "int64", "uint8", "uint16", "uint32",
                               "uint64", "float", "double"}) {
        QTest::newRow(number) << number << true << false;
    }
    QTest::newRow("selector") << "selector" << false << true;
    for (const char *other : {"string", "boolean", "bit", "array", "treenode", "colour"}) {
        QTest::newRow(other) << other << false << false;
    }
    QTest::newRow("empty") << "" << false << false;
    QTest::newRow("number in other case") << "Int32" << false << false;
    QTest::newRow("selector in other case") << "Selector" << false << false;
    QTest::newRow("number with a blank") << "int32 " << false << false;
    QTest::newRow("part of a number") << "int" << false << false;
    QTest::newRow("selector with a blank") << " selector" << false << false;
}

void tst_DataTypes::typeNames()
{
    QFETCH(QString, name);
    QFETCH(bool, isNumber);
    QFETCH(bool, isSelector);

    QCOMPARE(Tools::isNumberType(name), isNumber);
    QCOMPARE(Tools::isSelectorType(name), isSelector);
}

void tst_DataTypes::elementIsJudgedByItsTypeName_data()
{
    typeNames_data();
}

void tst_DataTypes::elementIsJudgedByItsTypeName()
{
    QFETCH(QString, name);
    QFETCH(bool, isNumber);
    QFETCH(bool, isSelector);
    const Base::BaseClassSharedPointer leaf = leafOfType(name);
    LogCapture log;

    QCOMPARE(Tools::isNumberType(*leaf), isNumber);
    QCOMPARE(Tools::isNumberType(leaf), isNumber);
    QCOMPARE(Tools::isSelectorType(*leaf), isSelector);
    QCOMPARE(Tools::isSelectorType(leaf), isSelector);
    COMPARE_LOG(log);
}

void tst_DataTypes::nullElementIsOfNoType()
{
    const Base::BaseClassSharedPointer none;
    LogCapture log;

    QVERIFY(!Tools::isNumberType(none));
    QVERIFY(!Tools::isSelectorType(none));
    COMPARE_LOG(log);
}

void tst_DataTypes::elementWithoutTypeIsOfNoType()
{
    const Base::BaseClassSharedPointer leaf = QSharedPointer<ConfigurationDataValue>::create(
        QJsonObject{{"value", 5}}, nullptr);
    LogCapture log;

    QVERIFY(!Tools::isNumberType(leaf));
    QVERIFY(!Tools::isNumberType(*leaf));
    QVERIFY(!Tools::isSelectorType(leaf));
    QVERIFY(!Tools::isSelectorType(*leaf));
    COMPARE_LOG(log);
}

void tst_DataTypes::typeThatIsNoTextIsNoType_data()
{
    QTest::addColumn<QJsonValue>("type");

    QTest::newRow("null") << QJsonValue();
    QTest::newRow("number") << QJsonValue(5);
    QTest::newRow("boolean") << QJsonValue(true);
    QTest::newRow("object") << QJsonValue(QJsonObject{{"int32", "int32"}});
    QTest::newRow("list of many") << QJsonValue(QJsonArray{"int32", "selector"});
}

void tst_DataTypes::typeThatIsNoTextIsNoType()
{
    QFETCH(QJsonValue, type);
    const Base::BaseClassSharedPointer leaf = leafOfType(type);
    LogCapture log;

    QVERIFY(!Tools::isNumberType(leaf));
    QVERIFY(!Tools::isSelectorType(leaf));
    COMPARE_LOG(log);
}

void tst_DataTypes::elementIsAskedThroughGetProperty()
{
    QVERIFY(Tools::isNumberType(ElementWithOwnType("double")));
    QVERIFY(!Tools::isSelectorType(ElementWithOwnType("double")));
    QVERIFY(Tools::isSelectorType(ElementWithOwnType("selector")));
    QVERIFY(Tools::isNumberType(ElementWithOwnType(QByteArray("int8"))));
    QVERIFY(!Tools::isNumberType(ElementWithOwnType(QVariant())));
    QVERIFY(!Tools::isNumberType(ElementWithOwnType(QVariant(QVariant::String))));
}

void tst_DataTypes::numbersAmongTheVariants_data()
{
    QTest::addColumn<QVariant>("value");
    QTest::addColumn<bool>("isNumber");

    QTest::newRow("Int") << QVariant(-1) << true;
    QTest::newRow("UInt") << QVariant(1U) << true;
    QTest::newRow("LongLong") << QVariant(Q_INT64_C(-1)) << true;
    QTest::newRow("ULongLong") << QVariant(Q_UINT64_C(1)) << true;
    QTest::newRow("Double") << QVariant(1.5) << true;
    QTest::newRow("Float") << QVariant(1.5F) << true;
    QTest::newRow("NaN") << QVariant(qQNaN()) << true;
    QTest::newRow("Int without a value") << QVariant(QVariant::Int) << true;
    QTest::newRow("Float without a value") << QVariant(QMetaType::Float, nullptr) << true;
    QTest::newRow("invalid") << QVariant() << false;
    QTest::newRow("Bool") << QVariant(true) << false;
    QTest::newRow("QString") << QVariant("a") << false;
    QTest::newRow("QString with digits") << QVariant("12") << false;
    QTest::newRow("QByteArray with digits") << QVariant(QByteArray("12")) << false;
    QTest::newRow("QChar") << QVariant(QChar('1')) << false;
    QTest::newRow("Short") << QVariant::fromValue(short(1)) << false;
    QTest::newRow("UShort") << QVariant::fromValue(ushort(1)) << false;
    QTest::newRow("UChar") << QVariant::fromValue(uchar(1)) << false;
    QTest::newRow("Long") << QVariant::fromValue(long(1)) << false;
    QTest::newRow("ULong") << QVariant::fromValue(ulong(1)) << false;
    QTest::newRow("list") << QVariant(QVariantList{1}) << false;
    QTest::newRow("map") << QVariant(QVariantMap{{"a", 1}}) << false;
    QTest::newRow("date and time") << QVariant(QDateTime::fromMSecsSinceEpoch(0)) << false;
}

void tst_DataTypes::numbersAmongTheVariants()
{
    QFETCH(QVariant, value);
    QFETCH(bool, isNumber);

    QCOMPARE(Tools::isVariantNumber(value), isNumber);
}

void tst_DataTypes::indicatorIsATypeWithoutAValue_data()
{
    QTest::addColumn<int>("type");

    for (const auto type : {QMetaType::Bool, QMetaType::Int, QMetaType::UInt, QMetaType::LongLong,
                            QMetaType::ULongLong, QMetaType::Double, QMetaType::QString,
                            QMetaType::Float, QMetaType::Nullptr}) {
        QTest::newRow(QMetaType::typeName(type)) << int(type);
    }
}

void tst_DataTypes::indicatorIsATypeWithoutAValue()
{
    QFETCH(int, type);

    const QVariant indicator = Tools::getNoInputValueIndicator(QMetaType::Type(type));

    QCOMPARE(indicator.userType(), type);
    QVERIFY(indicator.isValid());
    QVERIFY(indicator.isNull());
    QVERIFY(Tools::isNoInputValueIndicatorSet(indicator));
}

void tst_DataTypes::indicatorReadsAsZero()
{
    bool ok = false;

    QCOMPARE(Tools::getNoInputValueIndicator(QMetaType::Int).toInt(&ok), 0);
    QVERIFY(ok);
    QCOMPARE(Tools::getNoInputValueIndicator(QMetaType::Double).toDouble(&ok), 0.0);
    QVERIFY(ok);
    QVERIFY(Tools::getNoInputValueIndicator(QMetaType::QString).toString().isNull());
}

void tst_DataTypes::indicatorOfNoTypeIsNoIndicator()
{
    const QVariant indicator = Tools::getNoInputValueIndicator(QMetaType::UnknownType);

    QVERIFY(!indicator.isValid());
    QVERIFY(!Tools::isNoInputValueIndicatorSet(indicator));
}

void tst_DataTypes::valuesAreNoIndicator_data()
{
    QTest::addColumn<QVariant>("value");

    QTest::newRow("default constructed") << QVariant();
    QTest::newRow("0") << QVariant(0);
    QTest::newRow("0.0") << QVariant(0.0);
    QTest::newRow("0 of 64 bits") << QVariant(Q_UINT64_C(0));
    QTest::newRow("0 as float") << QVariant(0.0F);
    QTest::newRow("NaN") << QVariant(qQNaN());
    QTest::newRow("false") << QVariant(false);
    QTest::newRow("empty text") << QVariant(QString(""));
    QTest::newRow("text") << QVariant("null");
    QTest::newRow("empty list") << QVariant(QVariantList());
}

void tst_DataTypes::valuesAreNoIndicator()
{
    QFETCH(QVariant, value);

    QVERIFY(!Tools::isNoInputValueIndicatorSet(value));
}

QTEST_GUILESS_MAIN(tst_DataTypes)
#include "tst_DataTypes.moc"
