#include "Configuration/StampableRoots.h"

namespace {

using Base = ConfigurationAndProcessDataBase;
using Handler = ConfigurationModificationHandler;

} // namespace

class tst_ModifiedInstances : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void sameNamesTwiceAreTwoItems();
    void instanceIsRecordedWithTheDateOfItsRoot_data();
    void instanceIsRecordedWithTheDateOfItsRoot();
    void recordingDoesNotTouchTheRoot();
    void recordingOfANullRootIsRefusedWithoutNames();
    void recordingWithoutADateIsRefused();
    void recordingOfADateThatIsNoTextIsRefused();

    void listIsHandedOutAndKept();
    void handedOutListReplacesTheFormerContent();
    void handedOutListIsACopy();
    void clearedListIsEmpty();
    void clearedListStaysWithThoseWhoHaveIt();
    void clearedListTakesNewItems();
};

void tst_ModifiedInstances::sameNamesTwiceAreTwoItems()
{
    Handler handler;
    LogCapture log;

    handler.appendModifiedInstance("m", "o", "i", "first");
    handler.appendModifiedInstance("m", "o", "i", "second");
    handler.appendModifiedInstance("m", "o", "i", "first");

    QCOMPARE(log.take(), QList<LogLine>());
    QCOMPARE(itemsOf(handler), (QStringList{"m|o|i|first", "m|o|i|second", "m|o|i|first"}));
}

void tst_ModifiedInstances::instanceIsRecordedWithTheDateOfItsRoot_data()
{
    QTest::addColumn<QJsonValue>("property");
    QTest::addColumn<QString>("text");

    QTest::newRow("date") << QJsonValue("2024-02-29T13:14:15.016Z") << "2024-02-29T13:14:15.016Z";
    QTest::newRow("no date") << QJsonValue("never") << "never";
    QTest::newRow("empty text") << QJsonValue("") << "";
    QTest::newRow("number") << QJsonValue(2024) << "2024";
}

void tst_ModifiedInstances::instanceIsRecordedWithTheDateOfItsRoot()
{
    QFETCH(QJsonValue, property);
    QFETCH(QString, text);
    Handler handler;
    LogCapture log;

    QVERIFY(handler.appendModifiedInstance(element({{"lastModified", property}}), "module",
                                           "object", "instance"));

    QCOMPARE(log.take(), QList<LogLine>());
    QCOMPARE(itemsOf(handler), QStringList{"module|object|instance|" + text});
}

void tst_ModifiedInstances::recordingDoesNotTouchTheRoot()
{
    Handler handler;
    const auto root = recordingRoot();

    QVERIFY(handler.appendModifiedInstance(root, "m", "o", "i"));

    QCOMPARE(root->calls, (QStringList{"has lastModified", "get lastModified"}));
}

void tst_ModifiedInstances::recordingOfANullRootIsRefusedWithoutNames()
{
    Handler handler;
    LogCapture log;

    QVERIFY(!handler.appendModifiedInstance(Base::BaseClassSharedPointer(), "m", "o", "i"));

    COMPARE_LOG(log, warning(nullRoot));
    QCOMPARE(itemsOf(handler), QStringList());
}

void tst_ModifiedInstances::recordingWithoutADateIsRefused()
{
    Handler handler;
    LogCapture log;

    QVERIFY(!handler.appendModifiedInstance(rootWithModifierOnly(), "module", "object", "i"));

    COMPARE_LOG(log, warning("Cannot find property 'lastModified' in root node! ModuleName: "
                             "\"module\" ObjectName \"object\" InstanceName \"i\""));
    QCOMPARE(itemsOf(handler), QStringList());
}

void tst_ModifiedInstances::recordingOfADateThatIsNoTextIsRefused()
{
    Handler handler;
    const auto root = element({{"lastModified", QJsonObject{{"year", "2024"}}}});
    LogCapture log;

    QVERIFY(!handler.appendModifiedInstance(root, "module", "object", "i"));

    COMPARE_LOG(log, warning("Unable to convert property lastModified to string "
                             "QVariant(QVariantMap, QMap((\"year\", QVariant(QString, \"2024\")))) "
                             "! ModuleName: \"module\" ObjectName \"object\" InstanceName \"i\""));
    QCOMPARE(itemsOf(handler), QStringList());
}

void tst_ModifiedInstances::listIsHandedOutAndKept()
{
    Handler handler;
    handler.appendModifiedInstance("m", "o", "i", "d");

    QCOMPARE(itemsOf(handler), QStringList{"m|o|i|d"});
    QCOMPARE(itemsOf(handler), QStringList{"m|o|i|d"});
}

void tst_ModifiedInstances::handedOutListReplacesTheFormerContent()
{
    Handler handler;
    handler.appendModifiedInstance("m", "o", "i", "d");
    QList<ModifiedInstanceItem> items{{"a", "b", "c", "d"}, {"e", "f", "g", "h"}};

    handler.getModifiedInstances(items);

    QCOMPARE(items.size(), 1);
    QCOMPARE(items.first().moduleName, QString("m"));
    QCOMPARE(items.first().objectName, QString("o"));
    QCOMPARE(items.first().instanceName, QString("i"));
    QCOMPARE(items.first().lastModified, QString("d"));
}

void tst_ModifiedInstances::handedOutListIsACopy()
{
    Handler handler;
    handler.appendModifiedInstance("m", "o", "i", "d");
    QList<ModifiedInstanceItem> items;
    handler.getModifiedInstances(items);

    items.first().moduleName = "other";
    items.append({"a", "b", "c", "d"});

    QCOMPARE(itemsOf(handler), QStringList{"m|o|i|d"});
}

void tst_ModifiedInstances::clearedListIsEmpty()
{
    Handler handler;
    handler.appendModifiedInstance("m", "o", "i", "d");
    QList<ModifiedInstanceItem> items{{"a", "b", "c", "d"}};

    handler.clearModifiedInstances();
    handler.getModifiedInstances(items);

    QVERIFY(items.isEmpty());
}

void tst_ModifiedInstances::clearedListStaysWithThoseWhoHaveIt()
{
    Handler handler;
    handler.appendModifiedInstance("m", "o", "i", "d");
    QList<ModifiedInstanceItem> items;
    handler.getModifiedInstances(items);

    handler.clearModifiedInstances();

    QCOMPARE(items.size(), 1);
}

void tst_ModifiedInstances::clearedListTakesNewItems()
{
    Handler handler;
    handler.appendModifiedInstance("m", "o", "i", "d");

    handler.clearModifiedInstances();
    handler.appendModifiedInstance("m", "o", "j", "e");

    QCOMPARE(itemsOf(handler), QStringList{"m|o|j|e"});
}

QTEST_GUILESS_MAIN(tst_ModifiedInstances)

#include "tst_ModifiedInstances.moc"
