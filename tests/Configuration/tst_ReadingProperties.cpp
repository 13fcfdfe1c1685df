#include "Configuration/ConfigurationAndProcessDataParser.h"
#include "Configuration/ConfigurationAndProcessDataTools.h"
#include "support/LogCapture.h"

namespace {

using Base = ConfigurationAndProcessDataBase;
using Tools = ConfigurationAndProcessDataTools;

Base::BaseClassSharedPointer parse(const QByteArray &json, const QString &postfix)
{
    return ConfigurationAndProcessDataParser().parseFromByteArray(json, postfix);
}

LogLine noRoot()
{
    return warning("Pointer to root invalid!");
}

} // namespace

class tst_ReadingProperties : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();

    void propertyOfAnyElement_data();
    void propertyOfAnyElement();
    void missingPropertyIsInvalid();
    void propertyOfNoElementIsReported();
    void propertyPastALeafIsReportedTwice();
    void propertyOfNullRootIsReported();
    void propertyOfAProcessLeaf();

    void listPropertyIsAStringList();
    void propertyThatIsNoListIsReported_data();
    void propertyThatIsNoListIsReported();
    void listOfNoElementIsReportedTwice();

    void dataTypeIsTheTextOfTheType();
    void dataTypeThatIsNoTextIsReported();
    void dataTypeOfNoElementIsReportedTwice();

    void selectionIndexGivesItsText();
    void selectionIndexOutsideIsReported_data();
    void selectionIndexOutsideIsReported();
    void selectionTextGivesItsFirstIndex_data();
    void selectionTextGivesItsFirstIndex();
    void unknownSelectionTextIsReported();
    void emptySelectionListIsReported();

private:
    Base::BaseClassSharedPointer m_root;
    Base::BaseClassSharedPointer m_none;
};

void tst_ReadingProperties::init()
{
    m_root = parse(R"({"type":"treenode","labelTextId":"device","value":{
        "limits":{"type":"treenode","unit":"K","value":{
            "upper":{"type":"int32","value":80,"maxLimit":90,"info":{"by":"me","list":[4,5]}},
            "lower":{"type":"double","value":-2.5}}},
        "mode":{"type":"selector","value":1,"texts":["off","on"]},
        "name":{"type":"string","value":"probe"},
        "record":{"type":"record","value":{"a":1}},
        "table":{"type":"array","value":[[1,2],[3,4]]}}})",
                   "config.json");
    QVERIFY(!m_root.isNull());
}

void tst_ReadingProperties::propertyOfAnyElement_data()
{
    QTest::addColumn<QString>("url");
    QTest::addColumn<QString>("property");
    QTest::addColumn<QVariant>("value");

    QTest::newRow("of a leaf") << "limits/upper"
                               << "maxLimit" << QVariant(90);
    QTest::newRow("value of a leaf") << "limits/upper"
                                     << "value" << QVariant(80);
    QTest::newRow("of a tree node") << "limits"
                                    << "unit" << QVariant("K");
    QTest::newRow("nested") << "limits/upper"
                            << "info/by" << QVariant("me");
    QTest::newRow("nested in a list") << "limits/upper"
                                      << "info/list[1]" << QVariant(5);
}

void tst_ReadingProperties::propertyOfAnyElement()
{
    QFETCH(QString, url);
    QFETCH(QString, property);
    QFETCH(QVariant, value);
    LogCapture log;

    QCOMPARE(Tools::extractProperty(url, property, m_root), value);
    COMPARE_LOG(log);
}

void tst_ReadingProperties::missingPropertyIsInvalid()
{
    LogCapture log;

    QVERIFY(!Tools::extractProperty("name", "colour", m_root).isValid());
    COMPARE_LOG(log);
}

void tst_ReadingProperties::propertyOfNoElementIsReported()
{
    LogCapture log;

    QVERIFY(!Tools::extractProperty("limits/nothing", "unit", m_root).isValid());
    COMPARE_LOG(log, warning("Leaf url not value \"limits/nothing\""));
    // The root itself has no URL.
    QVERIFY(!Tools::extractProperty("", "labelTextId", m_root).isValid());
    COMPARE_LOG(log, warning("Leaf url not value \"\""));
}

void tst_ReadingProperties::propertyPastALeafIsReportedTwice()
{
    LogCapture log;

    QVERIFY(!Tools::extractProperty("name/more", "unit", m_root).isValid());
    COMPARE_LOG(log, warning("Wrong URL: \"more\""), warning("Leaf url not value \"name/more\""));
}

void tst_ReadingProperties::propertyOfNullRootIsReported()
{
    LogCapture log;

    QVERIFY(!Tools::extractProperty("name", "value", m_none).isValid());
    COMPARE_LOG(log, noRoot());
}

void tst_ReadingProperties::propertyOfAProcessLeaf()
{
    const auto process = parse(R"({"type":"treenode","value":{"a":{"type":"int32","unit":"bar"}}})",
                               "process.json");
    QVERIFY(!process.isNull());
    LogCapture log;

    QCOMPARE(Tools::extractProperty("a", "unit", process), QVariant("bar"));
    QCOMPARE(Tools::getDataType("a", process), QString("int32"));
    COMPARE_LOG(log);
}

void tst_ReadingProperties::listPropertyIsAStringList()
{
    LogCapture log;

    QCOMPARE(Tools::extractPropertyStringList("mode", "texts", m_root), (QStringList{"off", "on"}));
    // A single text converts to a list of one.
    QCOMPARE(Tools::extractPropertyStringList("name", "type", m_root), (QStringList{"string"}));
    COMPARE_LOG(log);
}

void tst_ReadingProperties::propertyThatIsNoListIsReported_data()
{
    QTest::addColumn<QString>("url");
    QTest::addColumn<QString>("property");

    QTest::newRow("number") << "limits/upper"
                            << "value";
    QTest::newRow("map") << "limits/upper"
                         << "info";
    QTest::newRow("missing") << "limits/upper"
                             << "colour";
}

void tst_ReadingProperties::propertyThatIsNoListIsReported()
{
    QFETCH(QString, url);
    QFETCH(QString, property);
    LogCapture log;

    QCOMPARE(Tools::extractPropertyStringList(url, property, m_root), QStringList());
    COMPARE_LOG(log,
                warning(QStringLiteral("Selection List Property of url \"%1\" invalid").arg(url)));
}

void tst_ReadingProperties::listOfNoElementIsReportedTwice()
{
    LogCapture log;

    QCOMPARE(Tools::extractPropertyStringList("nothing", "texts", m_root), QStringList());
    COMPARE_LOG(log, warning("Leaf url not value \"nothing\""),
                warning("Selection List Property of url \"nothing\" invalid"));
    QCOMPARE(Tools::extractPropertyStringList("mode", "texts", m_none), QStringList());
    COMPARE_LOG(log, noRoot(), warning("Selection List Property of url \"mode\" invalid"));
}

void tst_ReadingProperties::dataTypeIsTheTextOfTheType()
{
    LogCapture log;

    QCOMPARE(Tools::getDataType("limits/lower", m_root), QString("double"));
    QCOMPARE(Tools::getDataType("limits", m_root), QString("treenode"));
    QCOMPARE(Tools::getDataType("/table", m_root), QString("array"));
    QCOMPARE(Tools::getDataType("record", m_root), QString("record"));
    COMPARE_LOG(log);
}

void tst_ReadingProperties::dataTypeThatIsNoTextIsReported()
{
    const auto root = parse(R"({"type":"treenode","value":{"a":{"type":{"name":"int32"}}}})",
                            "config.json");
    QVERIFY(!root.isNull());
    LogCapture log;

    QVERIFY(Tools::getDataType("a", root).isNull());
    COMPARE_LOG(log, warning("Data Type Property of url \"a\" invalid"));
}

void tst_ReadingProperties::dataTypeOfNoElementIsReportedTwice()
{
    LogCapture log;

    QVERIFY(Tools::getDataType("nothing", m_root).isNull());
    COMPARE_LOG(log, warning("Leaf url not value \"nothing\""),
                warning("Data Type Property of url \"nothing\" invalid"));
    QVERIFY(Tools::getDataType("name", m_none).isNull());
    COMPARE_LOG(log, noRoot(), warning("Data Type Property of url \"name\" invalid"));
}

void tst_ReadingProperties::selectionIndexGivesItsText()
{
    const QStringList texts{"off", "on", ""};
    LogCapture log;

    QCOMPARE(Tools::selectionIndexToSelectionString(0, texts), QString("off"));
    QCOMPARE(Tools::selectionIndexToSelectionString(1, texts), QString("on"));
    QCOMPARE(Tools::selectionIndexToSelectionString(2, texts), QString(""));
    COMPARE_LOG(log);
}

void tst_ReadingProperties::selectionIndexOutsideIsReported_data()
{
    QTest::addColumn<int>("index");
    QTest::addColumn<QStringList>("texts");

    QTest::newRow("negative") << -1 << QStringList{"off", "on"};
    QTest::newRow("just past the end") << 2 << QStringList{"off", "on"};
    QTest::newRow("far past the end") << 2147483647 << QStringList{"off", "on"};
    QTest::newRow("empty list") << 0 << QStringList();
}

void tst_ReadingProperties::selectionIndexOutsideIsReported()
{
    QFETCH(int, index);
    QFETCH(QStringList, texts);
    LogCapture log;

    QVERIFY(Tools::selectionIndexToSelectionString(index, texts).isNull());
    COMPARE_LOG(log, warning(QStringLiteral("Given index %1 larger than number of selection list "
                                            "entries")
                                 .arg(index)));
}

void tst_ReadingProperties::selectionTextGivesItsFirstIndex_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<int>("index");

    QTest::newRow("first") << "off" << 0;
    QTest::newRow("twice in the list") << "on" << 1;
    QTest::newRow("other case") << "ON" << 2;
    QTest::newRow("empty") << "" << 4;
}

void tst_ReadingProperties::selectionTextGivesItsFirstIndex()
{
    QFETCH(QString, text);
    QFETCH(int, index);
    LogCapture log;

    QCOMPARE(Tools::selectionStringToSelectionIndex(text, {"off", "on", "ON", "on", ""}), index);
    COMPARE_LOG(log);
}

void tst_ReadingProperties::unknownSelectionTextIsReported()
{
    LogCapture log;

    QCOMPARE(Tools::selectionStringToSelectionIndex("On", {"off", "on"}), -1);
    COMPARE_LOG(log, warning("Cannot find selection string \"On\" in list"));
}

void tst_ReadingProperties::emptySelectionListIsReported()
{
    LogCapture log;

    QCOMPARE(Tools::selectionStringToSelectionIndex("on", {}), -1);
    COMPARE_LOG(log, warning("Error empty selection list"));
}

QTEST_GUILESS_MAIN(tst_ReadingProperties)
#include "tst_ReadingProperties.moc"
