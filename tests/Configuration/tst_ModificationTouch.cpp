#include "Configuration/StampableRoots.h"

#include <QSignalSpy>

namespace {

using Handler = ConfigurationModificationHandler;

} // namespace

class tst_ModificationTouch : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void firstTouchSetsTheOriginAlone();
    void secondOriginFollowsInParentheses();
    void originBehindAFormerModifierStandsInParentheses();
    void repeatedOriginsAreNotCollapsed();
    void touchStampsThePresentTime();
    void touchAsksInAFixedOrder();
    void touchSendsTheDateBeforeTheModifier();
    void touchWithRefusedWritesIsTrueAndRecorded();
    void touchWithoutDatePropertyStampsTheModifier();
    void touchWithoutModifierPropertyStampsTheDate();
    void touchWithNeitherPropertyRecordsNothing();
    void touchReplacesAModifierThatIsNoText();
    void touchWithEmptyOriginStampsTheDateOnly();
    void touchWithEmptyOriginAndNoModifierPropertySaysNothing();
    void touchWithEmptyOriginAndNoDatePropertyRecordsNothing();
    void touchOfANullRootIsTrueAndRecordsNothing();
    void everyTouchIsRecordedWithItsOwnDate();
    void emptyNamesAreRecorded();
};

void tst_ModificationTouch::firstTouchSetsTheOriginAlone()
{
    Handler handler;
    const auto root = completeRoot();
    LogCapture log;

    QVERIFY(handler.touch(root, "module", "object", "instance", "Device"));

    QCOMPARE(log.take(), QList<LogLine>());
    QCOMPARE(modifiedByOf(root), QString("Device"));
    QCOMPARE(itemsOf(handler), QStringList{"module|object|instance|" + lastModifiedOf(root)});
}

void tst_ModificationTouch::secondOriginFollowsInParentheses()
{
    Handler handler;
    const auto root = completeRoot();

    QVERIFY(handler.touch(root, "m", "o", "i", "Device"));
    QVERIFY(handler.touch(root, "m", "o", "i", "Tool"));

    QCOMPARE(modifiedByOf(root), QString("Device(Tool)"));
}

void tst_ModificationTouch::originBehindAFormerModifierStandsInParentheses()
{
    const auto root = completeRoot("Factory");

    QVERIFY(Handler().touch(root, "m", "o", "i", "Device"));

    QCOMPARE(modifiedByOf(root), QString("Factory(Device)"));
}

void tst_ModificationTouch::repeatedOriginsAreNotCollapsed()
{
    Handler handler;
    const auto root = completeRoot();

    QVERIFY(handler.touch(root, "m", "o", "i", "Device"));
    QVERIFY(handler.touch(root, "m", "o", "i", "Device"));
    QVERIFY(handler.touch(root, "m", "o", "i", "Device"));

    QCOMPARE(modifiedByOf(root), QString("Device(Device)(Device)"));
}

void tst_ModificationTouch::touchStampsThePresentTime()
{
    const auto root = completeRoot();
    const QDateTime begin = QDateTime::currentDateTime();

    QVERIFY(Handler().touch(root, "m", "o", "i", "Device"));

    QVERIFY(liesBetweenNowAnd(begin, lastModifiedOf(root)));
}

void tst_ModificationTouch::touchAsksInAFixedOrder()
{
    const auto root = recordingRoot();

    QVERIFY(Handler().touch(root, "m", "o", "i", "Device"));

    QCOMPARE(root->calls, (QStringList{"has lastModified", "set lastModified", "has modifiedBy",
                                       "get modifiedBy", "has modifiedBy", "set modifiedBy"}));
}

void tst_ModificationTouch::touchSendsTheDateBeforeTheModifier()
{
    const auto root = completeRoot();
    QSignalSpy detailed(root.data(), SIGNAL(propertyChanged(QString, QVariant)));

    QVERIFY(Handler().touch(root, "m", "o", "i", "Device"));

    QCOMPARE(detailed, (QList<QVariantList>{{"lastModified", lastModifiedOf(root)},
                                            {"modifiedBy", "Device"}}));
}

void tst_ModificationTouch::touchWithRefusedWritesIsTrueAndRecorded()
{
    Handler handler;
    const auto root = recordingRoot();
    root->refusesWrites = true;
    LogCapture log;

    QVERIFY(handler.touch(root, "m", "o", "i", "Device"));

    QCOMPARE(log.take(), QList<LogLine>());
    QCOMPARE(itemsOf(handler).size(), 1);
}

void tst_ModificationTouch::touchWithoutDatePropertyStampsTheModifier()
{
    Handler handler;
    const auto root = rootWithModifierOnly();
    const QDateTime begin = QDateTime::currentDateTime();
    LogCapture log;

    QVERIFY(!handler.touch(root, "m", "o", "i", "Device"));

    COMPARE_LOG(log, warning(dateMissing));
    QCOMPARE(modifiedByOf(root), QString("Factory(Device)"));
    QCOMPARE(itemsOf(handler).size(), 1);
    QVERIFY(liesBetweenNowAnd(begin, itemsOf(handler).first().section('|', 3)));
}

void tst_ModificationTouch::touchWithoutModifierPropertyStampsTheDate()
{
    Handler handler;
    const auto root = rootWithDateOnly();
    const QDateTime begin = QDateTime::currentDateTime();
    LogCapture log;

    QVERIFY(!handler.touch(root, "m", "o", "i", "Device"));

    COMPARE_LOG(log, warning(modifierMissing), warning(modifierMissing));
    QVERIFY(liesBetweenNowAnd(begin, lastModifiedOf(root)));
    QVERIFY(!root->hasProperty("modifiedBy"));
    QCOMPARE(itemsOf(handler), QStringList{"m|o|i|" + lastModifiedOf(root)});
}

void tst_ModificationTouch::touchWithNeitherPropertyRecordsNothing()
{
    Handler handler;
    const auto root = rootWithNeither();
    const auto former = root->getProperties();
    LogCapture log;

    QVERIFY(!handler.touch(root, "m", "o", "i", "Device"));

    COMPARE_LOG(log, warning(dateMissing), warning(modifierMissing), warning(modifierMissing));
    QCOMPARE(root->getProperties(), former);
    QCOMPARE(itemsOf(handler), QStringList());
}

void tst_ModificationTouch::touchReplacesAModifierThatIsNoText()
{
    Handler handler;
    const auto root = element({{"modifiedBy", QJsonObject()}, {"lastModified", ""}});
    LogCapture log;

    QVERIFY(handler.touch(root, "m", "o", "i", "Device"));

    COMPARE_LOG(log, warning("Unable to convert property 'modifiedBy' to string "
                             "QVariant(QVariantMap, QMap()) !"));
    QCOMPARE(root->getProperty("modifiedBy"), QVariant("Device"));
    QCOMPARE(itemsOf(handler).size(), 1);
}

void tst_ModificationTouch::touchWithEmptyOriginStampsTheDateOnly()
{
    Handler handler;
    const auto root = completeRoot("Factory");
    const QDateTime begin = QDateTime::currentDateTime();
    LogCapture log;

    QVERIFY(!handler.touch(root, "m", "o", "i", ""));

    QCOMPARE(log.take(), QList<LogLine>());
    QVERIFY(liesBetweenNowAnd(begin, lastModifiedOf(root)));
    QCOMPARE(modifiedByOf(root), QString("Factory"));
    QCOMPARE(itemsOf(handler), QStringList{"m|o|i|" + lastModifiedOf(root)});
}

void tst_ModificationTouch::touchWithEmptyOriginAndNoModifierPropertySaysNothing()
{
    Handler handler;
    LogCapture log;

    QVERIFY(!handler.touch(rootWithDateOnly(), "m", "o", "i", {}));

    QCOMPARE(log.take(), QList<LogLine>());
    QCOMPARE(itemsOf(handler).size(), 1);
}

void tst_ModificationTouch::touchWithEmptyOriginAndNoDatePropertyRecordsNothing()
{
    Handler handler;
    const auto root = rootWithModifierOnly();
    LogCapture log;

    QVERIFY(!handler.touch(root, "m", "o", "i", ""));

    COMPARE_LOG(log, warning(dateMissing));
    QCOMPARE(modifiedByOf(root), QString("Factory"));
    QCOMPARE(itemsOf(handler), QStringList());
}

void tst_ModificationTouch::touchOfANullRootIsTrueAndRecordsNothing()
{
    Handler handler;
    LogCapture log;

    QVERIFY(handler.touch({}, "module", "object", "instance", "Device"));

    COMPARE_LOG(log, warning("Invalid pointer to root node! ModuleName: \"module\" ObjectName "
                             "\"object\" InstanceName \"instance\""));
    QCOMPARE(itemsOf(handler), QStringList());
}

void tst_ModificationTouch::everyTouchIsRecordedWithItsOwnDate()
{
    Handler handler;
    const auto first = completeRoot();
    const auto second = completeRoot();

    QVERIFY(handler.touch(first, "m", "o", "b", "Device"));
    const QString firstDate = lastModifiedOf(first);
    QVERIFY(handler.touch(second, "m", "o", "a", "Device"));
    QVERIFY(handler.touch(first, "m", "o", "b", "Device"));

    QCOMPARE(itemsOf(handler), (QStringList{"m|o|b|" + firstDate, "m|o|a|" + lastModifiedOf(second),
                                            "m|o|b|" + lastModifiedOf(first)}));
}

void tst_ModificationTouch::emptyNamesAreRecorded()
{
    Handler handler;
    const auto root = completeRoot();

    QVERIFY(handler.touch(root, {}, {}, {}, "Device"));

    QCOMPARE(itemsOf(handler), QStringList{"|||" + lastModifiedOf(root)});
}

QTEST_GUILESS_MAIN(tst_ModificationTouch)

#include "tst_ModificationTouch.moc"
