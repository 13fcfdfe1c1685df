#include "Companion/ConfigurationAndProcessDataDefinitions.h"
#include "Companion/PropertyManagerConst.h"
#include "Companion/StringConversionsDefinitions.h"

#include <QSet>
#include <QtTest>

#include <algorithm>

using Definitions = ConfigurationAndProcessDataDefinitions;
using TextGetter = const QString &(*)();

namespace {

struct NamedText
{
    const char *text;
    TextGetter getter;
};

const NamedText typeNames[] = {
    {"treenode", &Definitions::getKeyDataTypeTreeNode},
    {"array", &Definitions::getKeyDataTypeArray},
    {"boolean", &Definitions::getKeyDataTypeBoolean},
    {"selector", &Definitions::getKeyDataTypeSelector},
    {"string", &Definitions::getKeyDataTypeString},
};

const NamedText propertyKeys[] = {
    {"type", &Definitions::getKeyDataPropertyType},
    {"value", &Definitions::getKeyDataPropertyValue},
    {"minLimit", &Definitions::getKeyDataPropertyMinLimit},
    {"maxLimit", &Definitions::getKeyDataPropertyMaxLimit},
    {"schemeVersion", &Definitions::getKeyDataPropertySchemeVersion},
    {"displayPosition", &Definitions::getKeyDataPropertyDisplayPosition},
    {"labelTextId", &Definitions::getKeyDataPropertyLabelTextId},
    {"cpveVersion", &Definitions::getKeyDataPropertyCpveVersion},
    {"configurationVersion", &Definitions::getKeyDataPropertyConfigurationVersion},
    {"regularExpression", &Definitions::getKeyDataPropertyRegularExpression},
    {"arrayInformation", &Definitions::getKeyDataPropertyArrayInformation},
    {"arrayHasDynamicRows", &Definitions::getKeyDataPropertyArrayHasDynamicRows},
    {"arrayMinRows", &Definitions::getKeyDataPropertyArrayMinRows},
    {"arrayMaxRows", &Definitions::getKeyDataPropertyArrayMaxRows},
    {"unitType", &Definitions::getKeyDataPropertyUnitType},
    {"modifiedBy", &Definitions::getKeyDataPropertyModifiedBy},
    {"lastModified", &Definitions::getKeyDataPropertyLastModified},
    {"unit", &Definitions::getKeyDataPropertyUnit},
    {"unitText", &Definitions::getKeyDataPropertyUnitText},
    {"viewStart", &Definitions::getKeyDataPropertyViewStart},
    {"viewEnd", &Definitions::getKeyDataPropertyViewEnd},
    {"offsetSharedMemory", &Definitions::getKeyDataPropertyOffsetSharedMemory},
    {"relativeOffsetMetadata", &Definitions::getKeyDataPropertyRelativeOffsetMetadata},
    {"sizeValue", &Definitions::getKeyDataPropertySizeValue},
    {"sizeMetadata", &Definitions::getKeyDataPropertySizeMetadata},
    {"bitmask", &Definitions::getKeyDataPropertyBitmask},
    {"readOnly", &Definitions::getKeyDataPropertyReadOnly},
    {"sizeOfSharedMemory", &Definitions::getKeyDataPropertySizeOfSharedMemory},
    {"doubleBuffer", &Definitions::getKeyDataPropertyDoubleBuffer},
    {"keyProcessDataMemory", &Definitions::getStrKeyProcessDataMemory},
};

template <std::size_t count>
void addRows(const NamedText (&texts)[count])
{
    QTest::addColumn<TextGetter>("getter");
    QTest::addColumn<QString>("expected");
    for (const auto &text : texts) {
        QTest::newRow(text.text) << text.getter << QString::fromLatin1(text.text);
    }
}

template <std::size_t count>
QSet<QString> distinctTexts(const NamedText (&texts)[count])
{
    QSet<QString> distinct;
    for (const auto &text : texts) {
        distinct.insert(text.getter());
    }
    return distinct;
}

/// Everything that an object built during load gets to see.
struct TextsDuringLoad
{
    QString memoryKey = Definitions::getStrKeyProcessDataMemory();
    QString configurationPostfix = PropertyManagerConst::getConfigFileExtension();
    QString processPostfix = PropertyManagerConst::getProcessDataDescriptionFileExtension();
    int typeCount = Definitions::getBasicDataTypeMapForProcessData().size();
};

const TextsDuringLoad textsDuringLoad;

} // namespace

Q_DECLARE_METATYPE(TextGetter)
Q_DECLARE_METATYPE(QMetaType::Type)

class tst_Vocabulary : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void typeNameReads_data() { addRows(typeNames); }
    void typeNameReads();
    void propertyKeyReads_data() { addRows(propertyKeys); }
    void propertyKeyReads();
    void typeNamesAreDistinct();
    void propertyKeysAreDistinct();
    void keysFitPropertyPaths();
    void getterGivesTheSameConstantEachTime();
    void textsExistDuringLoad();

    void everyIntegerAndFloatingTypeIsANumber();
    void otherTypesAreNoNumbers_data();
    void otherTypesAreNoNumbers();

    void typeNameMapsToMetaTypeAndSize_data();
    void typeNameMapsToMetaTypeAndSize();
    void mapsHoldNothingElse();
    void textHasNoFixedSize();
    void arrayAndTreeNodeAreInNoMap();
    void onlyOneTypeFillsAByteWithABoolean();

    void postfixHasOneInnerDot_data();
    void postfixHasOneInnerDot();
    void postfixesDiffer();
    void folderDescriptionFileEndsInNeitherPostfix();
    void fileNamesRead();

    void booleanTextsRead();
    void errorSignsDifferFromEachOther();
    void errorSignsAreNoNumbers();
};

void tst_Vocabulary::typeNameReads()
{
    QFETCH(TextGetter, getter);
    QFETCH(QString, expected);

    QCOMPARE(getter(), expected);
}

void tst_Vocabulary::propertyKeyReads()
{
    QFETCH(TextGetter, getter);
    QFETCH(QString, expected);

    QCOMPARE(getter(), expected);
}

void tst_Vocabulary::typeNamesAreDistinct()
{
    QCOMPARE(distinctTexts(typeNames).size(), int(std::size(typeNames)));
}

void tst_Vocabulary::propertyKeysAreDistinct()
{
    QCOMPARE(distinctTexts(propertyKeys).size(), int(std::size(propertyKeys)));
    QCOMPARE(int(std::size(propertyKeys)), 30);
}

void tst_Vocabulary::keysFitPropertyPaths()
{
    for (const auto &key : propertyKeys) {
        const QString text = key.getter();
        QVERIFY(!text.isEmpty());
        QVERIFY2(std::all_of(text.cbegin(), text.cend(), [](QChar c) { return c.isLetter(); }),
                 key.text);
    }
}

void tst_Vocabulary::getterGivesTheSameConstantEachTime()
{
    for (const auto &key : propertyKeys) {
        QCOMPARE(&key.getter(), &key.getter());
    }
    QCOMPARE(&Definitions::getConfigurationNumberDataTypes(),
             &Definitions::getConfigurationNumberDataTypes());
    QCOMPARE(&Definitions::getBasicDataTypeMapForProcessData(),
             &Definitions::getBasicDataTypeMapForProcessData());
    QCOMPARE(&Definitions::getMapBasicDataTypeStringToSize(),
             &Definitions::getMapBasicDataTypeStringToSize());
}

void tst_Vocabulary::textsExistDuringLoad()
{
    QCOMPARE(textsDuringLoad.memoryKey, QStringLiteral("keyProcessDataMemory"));
    QCOMPARE(textsDuringLoad.configurationPostfix, QStringLiteral("config.json"));
    QCOMPARE(textsDuringLoad.processPostfix, QStringLiteral("process.json"));
    QCOMPARE(textsDuringLoad.typeCount, 14);
}

void tst_Vocabulary::everyIntegerAndFloatingTypeIsANumber()
{
    QStringList names = Definitions::getConfigurationNumberDataTypes();

    names.sort();
    QCOMPARE(names, (QStringList{QStringLiteral("double"), QStringLiteral("float"),
                                 QStringLiteral("int16"), QStringLiteral("int32"),
                                 QStringLiteral("int64"), QStringLiteral("int8"),
                                 QStringLiteral("uint16"), QStringLiteral("uint32"),
                                 QStringLiteral("uint64"), QStringLiteral("uint8")}));
}

void tst_Vocabulary::otherTypesAreNoNumbers_data()
{
    QTest::addColumn<QString>("name");
    for (const char *name : {"boolean", "bit", "string", "selector", "array", "treenode", "Double",
                             "INT32", "", "int"}) {
        QTest::newRow(qstrlen(name) == 0 ? "nothing" : name) << QString::fromLatin1(name);
    }
}

void tst_Vocabulary::otherTypesAreNoNumbers()
{
    QFETCH(QString, name);

    QVERIFY(!Definitions::getConfigurationNumberDataTypes().contains(name));
}

void tst_Vocabulary::typeNameMapsToMetaTypeAndSize_data()
{
    QTest::addColumn<QMetaType::Type>("metaType");
    QTest::addColumn<int>("size");
    QTest::newRow("boolean") << QMetaType::Bool << 1;
    QTest::newRow("bit") << QMetaType::Bool << 1;
    QTest::newRow("int8") << QMetaType::Int << 1;
    QTest::newRow("int16") << QMetaType::Int << 2;
    QTest::newRow("int32") << QMetaType::Int << 4;
    QTest::newRow("int64") << QMetaType::LongLong << 8;
    QTest::newRow("uint8") << QMetaType::UInt << 1;
    QTest::newRow("uint16") << QMetaType::UInt << 2;
    QTest::newRow("uint32") << QMetaType::UInt << 4;
    QTest::newRow("uint64") << QMetaType::ULongLong << 8;
    QTest::newRow("float") << QMetaType::Float << 4;
    QTest::newRow("double") << QMetaType::Double << 8;
    QTest::newRow("selector") << QMetaType::Int << 4;
}

void tst_Vocabulary::typeNameMapsToMetaTypeAndSize()
{
    QFETCH(QMetaType::Type, metaType);
    QFETCH(int, size);
    const QString name = QString::fromLatin1(QTest::currentDataTag());

    QCOMPARE(Definitions::getBasicDataTypeMapForProcessData().value(name), metaType);
    QCOMPARE(Definitions::getMapBasicDataTypeStringToSize().value(name), size);
}

void tst_Vocabulary::mapsHoldNothingElse()
{
    QCOMPARE(Definitions::getBasicDataTypeMapForProcessData().size(), 14);
    QCOMPARE(Definitions::getMapBasicDataTypeStringToSize().size(), 13);
}

void tst_Vocabulary::textHasNoFixedSize()
{
    const QString name = QStringLiteral("string");

    QCOMPARE(Definitions::getBasicDataTypeMapForProcessData().value(name), QMetaType::QString);
    QVERIFY(!Definitions::getMapBasicDataTypeStringToSize().contains(name));
}

void tst_Vocabulary::arrayAndTreeNodeAreInNoMap()
{
    for (const auto &name : {QStringLiteral("array"), QStringLiteral("treenode")}) {
        QVERIFY(!Definitions::getBasicDataTypeMapForProcessData().contains(name));
        QVERIFY(!Definitions::getMapBasicDataTypeStringToSize().contains(name));
    }
}

void tst_Vocabulary::onlyOneTypeFillsAByteWithABoolean()
{
    QStringList names = Definitions::getBasicDataTypeMapForProcessData().keys(QMetaType::Bool);

    QCOMPARE(names.removeAll(Definitions::getKeyDataTypeBoolean()), 1);
    QCOMPARE(names, QStringList{QStringLiteral("bit")});
}

void tst_Vocabulary::postfixHasOneInnerDot_data()
{
    QTest::addColumn<QString>("postfix");
    QTest::newRow("configuration") << PropertyManagerConst::getConfigFileExtension();
    QTest::newRow("process description")
        << PropertyManagerConst::getProcessDataDescriptionFileExtension();
}

void tst_Vocabulary::postfixHasOneInnerDot()
{
    QFETCH(QString, postfix);
    const QChar dot = QLatin1Char('.');

    QCOMPARE(postfix.count(dot), 1);
    QVERIFY(!postfix.startsWith(dot));
    QVERIFY(!postfix.endsWith(dot));
}

void tst_Vocabulary::postfixesDiffer()
{
    QVERIFY(PropertyManagerConst::getConfigFileExtension()
            != PropertyManagerConst::getProcessDataDescriptionFileExtension());
}

void tst_Vocabulary::folderDescriptionFileEndsInNeitherPostfix()
{
    const QString name = PropertyManagerConst::getMenuFolderDescriptionFilename();

    QVERIFY(!name.isEmpty());
    QVERIFY(!name.endsWith(PropertyManagerConst::getConfigFileExtension()));
    QVERIFY(!name.endsWith(PropertyManagerConst::getProcessDataDescriptionFileExtension()));
}

void tst_Vocabulary::fileNamesRead()
{
    QCOMPARE(PropertyManagerConst::getConfigFileExtension(), QStringLiteral("config.json"));
    QCOMPARE(PropertyManagerConst::getProcessDataDescriptionFileExtension(),
             QStringLiteral("process.json"));
    QCOMPARE(PropertyManagerConst::getMenuFolderDescriptionFilename(),
             QStringLiteral("folder.json"));
}

void tst_Vocabulary::booleanTextsRead()
{
    QCOMPARE(StringConversionsDefinitions::getBoolValueTrue(), QStringLiteral("true"));
    QCOMPARE(StringConversionsDefinitions::getBoolValueFalse(), QStringLiteral("false"));
}

void tst_Vocabulary::errorSignsDifferFromEachOther()
{
    const QSet<QString> signs = {StringConversionsDefinitions::getErrorUnderrangeSign(),
                                 StringConversionsDefinitions::getErrorOverrangeSign(),
                                 StringConversionsDefinitions::getErrorNoInputValueSign(),
                                 StringConversionsDefinitions::getErrorNaNSign(),
                                 StringConversionsDefinitions::getBoolValueTrue(),
                                 StringConversionsDefinitions::getBoolValueFalse()};

    QCOMPARE(signs.size(), 6);
    QVERIFY(!signs.contains(QString()));
}

void tst_Vocabulary::errorSignsAreNoNumbers()
{
    for (const TextGetter sign : {&StringConversionsDefinitions::getErrorUnderrangeSign,
                                  &StringConversionsDefinitions::getErrorOverrangeSign,
                                  &StringConversionsDefinitions::getErrorNoInputValueSign,
                                  &StringConversionsDefinitions::getErrorNaNSign}) {
        bool isNumber = true;
        sign().toDouble(&isNumber);
        QVERIFY(!isNumber);
    }
}

QTEST_GUILESS_MAIN(tst_Vocabulary)
#include "tst_Vocabulary.moc"
