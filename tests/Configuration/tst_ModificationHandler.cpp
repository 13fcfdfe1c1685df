#include "Companion/IsoDateConverter.h"
#include "Configuration/StampableRoots.h"

#include <QSignalSpy>

namespace {

using Handler = ConfigurationModificationHandler;

} // namespace

class tst_ModificationHandler : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();

    void theProcessHasOneHandler();
    void newHandlerHasAnEmptyList();
    void handlersKeepListsOfTheirOwn();
    void dateTextIsThatOfTheConverter();

    void modifierIsTheTextOfTheProperty_data();
    void modifierIsTheTextOfTheProperty();
    void modifierOfANullRootIsNull();
    void missingModifierIsNull();
    void modifierHeldAsInvalidVariantIsMissing();
    void modifierThatIsNoTextIsNull();

    void modifierIsSetWithSignals();
    void sameModifierAgainIsTrueWithoutSignals();
    void refusedWriteOfTheModifierIsTrue();
    void modifierOfANullRootIsRefused();
    void missingModifierIsNotAdded();

    void dateIsSetWithSignals();
    void anyTextIsTakenAsDate();
    void refusedWriteOfTheDateIsTrue();
    void dateOfANullRootIsRefused();
    void missingDateIsNotAdded();

    void modifierAndDateAreBothReplaced();
    void modifierAndDateAreNotRecorded();
    void modifierAndDateOfANullRootAreRefusedOnce();
    void modifierIsOverwrittenWhereTheDateIsMissing();
    void dateIsStampedWhereTheModifierIsMissing();
    void neitherModifierNorDateGivesBothWarnings();
};

void tst_ModificationHandler::initTestCase()
{
    // Nobody stamped anything in this process so far.
    QCOMPARE(itemsOf(Handler::getInstance()), QStringList());
}

void tst_ModificationHandler::theProcessHasOneHandler()
{
    Handler::getInstance().appendModifiedInstance("m", "o", "i", "d");

    QCOMPARE(&Handler::getInstance(), &Handler::getInstance());
    QCOMPARE(itemsOf(Handler::getInstance()), QStringList{"m|o|i|d"});
    Handler::getInstance().clearModifiedInstances();
}

void tst_ModificationHandler::newHandlerHasAnEmptyList()
{
    QCOMPARE(itemsOf(Handler()), QStringList());
}

void tst_ModificationHandler::handlersKeepListsOfTheirOwn()
{
    Handler handler;

    handler.appendModifiedInstance("m", "o", "i", "d");

    QCOMPARE(itemsOf(Handler::getInstance()), QStringList());
    QCOMPARE(itemsOf(handler), QStringList{"m|o|i|d"});
}

void tst_ModificationHandler::dateTextIsThatOfTheConverter()
{
    const Handler handler;
    const QDateTime date({2024, 2, 29}, {13, 14, 15, 16}, Qt::UTC);

    QCOMPARE(handler.getModificationDateAsString(date), QString("2024-02-29T13:14:15.016Z"));
    QCOMPARE(handler.getModificationDateAsString(date.toLocalTime()),
             IsoDateConverter::convertDateTimeToIsoDateWithMsAndTimezone(date.toLocalTime()));
    QCOMPARE(handler.getModificationDateAsString({}), QString());
}

void tst_ModificationHandler::modifierIsTheTextOfTheProperty_data()
{
    QTest::addColumn<QJsonValue>("property");
    QTest::addColumn<QString>("text");

    QTest::newRow("one origin") << QJsonValue("Device") << "Device";
    QTest::newRow("chain") << QJsonValue("Tool(Device)") << "Tool(Device)";
    QTest::newRow("nobody") << QJsonValue("") << "";
    QTest::newRow("number") << QJsonValue(7) << "7";
    QTest::newRow("truth") << QJsonValue(true) << "true";
}

void tst_ModificationHandler::modifierIsTheTextOfTheProperty()
{
    QFETCH(QJsonValue, property);
    QFETCH(QString, text);
    LogCapture log;

    QCOMPARE(Handler().getModifiedBy(element({{"modifiedBy", property}})), text);

    QCOMPARE(log.take(), QList<LogLine>());
}

void tst_ModificationHandler::modifierOfANullRootIsNull()
{
    LogCapture log;

    QVERIFY(Handler().getModifiedBy({}).isNull());

    COMPARE_LOG(log, warning(nullRoot));
}

void tst_ModificationHandler::missingModifierIsNull()
{
    LogCapture log;

    QVERIFY(Handler().getModifiedBy(rootWithDateOnly()).isNull());

    COMPARE_LOG(log, warning(modifierMissing));
}

void tst_ModificationHandler::modifierHeldAsInvalidVariantIsMissing()
{
    const auto root = rootWithNeither();
    root->addProperty("modifiedBy", {});
    LogCapture log;

    QVERIFY(Handler().getModifiedBy(root).isNull());

    COMPARE_LOG(log, warning(modifierMissing));
}

void tst_ModificationHandler::modifierThatIsNoTextIsNull()
{
    const auto root = element({{"modifiedBy", QJsonObject{{"name", "Device"}}}});
    LogCapture log;

    QVERIFY(Handler().getModifiedBy(root).isNull());

    COMPARE_LOG(log, warning("Unable to convert property 'modifiedBy' to string "
                             "QVariant(QVariantMap, QMap((\"name\", QVariant(QString, "
                             "\"Device\")))) !"));
}

void tst_ModificationHandler::modifierIsSetWithSignals()
{
    const auto root = completeRoot("Factory");
    QSignalSpy detailed(root.data(), SIGNAL(propertyChanged(QString, QVariant)));
    QSignalSpy plain(root.data(), SIGNAL(propertyChanged()));
    LogCapture log;

    QVERIFY(Handler().setModifiedBy(root, "Tool"));

    QCOMPARE(log.take(), QList<LogLine>());
    QCOMPARE(root->getProperty("modifiedBy"), QVariant("Tool"));
    QCOMPARE(lastModifiedOf(root), QString());
    QCOMPARE(detailed, (QList<QVariantList>{{"modifiedBy", "Tool"}}));
    QCOMPARE(plain.count(), 1);
}

void tst_ModificationHandler::sameModifierAgainIsTrueWithoutSignals()
{
    const auto root = completeRoot("Factory");
    QSignalSpy plain(root.data(), SIGNAL(propertyChanged()));

    QVERIFY(Handler().setModifiedBy(root, "Factory"));

    QCOMPARE(modifiedByOf(root), QString("Factory"));
    QCOMPARE(plain.count(), 0);
}

void tst_ModificationHandler::refusedWriteOfTheModifierIsTrue()
{
    const auto root = recordingRoot();
    root->refusesWrites = true;
    LogCapture log;

    QVERIFY(Handler().setModifiedBy(root, "Tool"));

    QCOMPARE(log.take(), QList<LogLine>());
    QCOMPARE(root->calls, (QStringList{"has modifiedBy", "set modifiedBy"}));
    QCOMPARE(modifiedByOf(root), QString());
}

void tst_ModificationHandler::modifierOfANullRootIsRefused()
{
    LogCapture log;

    QVERIFY(!Handler().setModifiedBy({}, "Tool"));

    COMPARE_LOG(log, warning(nullRoot));
}

void tst_ModificationHandler::missingModifierIsNotAdded()
{
    const auto root = rootWithDateOnly();
    const auto former = root->getProperties();
    LogCapture log;

    QVERIFY(!Handler().setModifiedBy(root, "Tool"));

    COMPARE_LOG(log, warning(modifierMissing));
    QCOMPARE(root->getProperties(), former);
}

void tst_ModificationHandler::dateIsSetWithSignals()
{
    const auto root = completeRoot("Factory");
    QSignalSpy detailed(root.data(), SIGNAL(propertyChanged(QString, QVariant)));
    QSignalSpy plain(root.data(), SIGNAL(propertyChanged()));
    LogCapture log;

    QVERIFY(Handler().setLastModified(root, "2024-02-29T13:14:15.016Z"));

    QCOMPARE(log.take(), QList<LogLine>());
    QCOMPARE(root->getProperty("lastModified"), QVariant("2024-02-29T13:14:15.016Z"));
    QCOMPARE(modifiedByOf(root), QString("Factory"));
    QCOMPARE(detailed, (QList<QVariantList>{{"lastModified", "2024-02-29T13:14:15.016Z"}}));
    QCOMPARE(plain.count(), 1);
}

void tst_ModificationHandler::anyTextIsTakenAsDate()
{
    const auto root = completeRoot();

    QVERIFY(Handler().setLastModified(root, "yesterday"));

    QCOMPARE(lastModifiedOf(root), QString("yesterday"));
}

void tst_ModificationHandler::refusedWriteOfTheDateIsTrue()
{
    const auto root = recordingRoot();
    root->refusesWrites = true;
    LogCapture log;

    QVERIFY(Handler().setLastModified(root, "today"));

    QCOMPARE(log.take(), QList<LogLine>());
    QCOMPARE(root->calls, (QStringList{"has lastModified", "set lastModified"}));
    QCOMPARE(lastModifiedOf(root), QString());
}

void tst_ModificationHandler::dateOfANullRootIsRefused()
{
    LogCapture log;

    QVERIFY(!Handler().setLastModified({}, "today"));

    COMPARE_LOG(log, warning(nullRoot));
}

void tst_ModificationHandler::missingDateIsNotAdded()
{
    const auto root = rootWithModifierOnly();
    const auto former = root->getProperties();
    LogCapture log;

    QVERIFY(!Handler().setLastModified(root, "today"));

    COMPARE_LOG(log, warning(dateMissing));
    QCOMPARE(root->getProperties(), former);
}

void tst_ModificationHandler::modifierAndDateAreBothReplaced()
{
    const auto root = completeRoot("Tool(Device)");
    const QDateTime begin = QDateTime::currentDateTime();
    LogCapture log;

    QVERIFY(Handler().setModifiedByAndCurrentDate(root, "Factory"));

    QCOMPARE(log.take(), QList<LogLine>());
    QCOMPARE(modifiedByOf(root), QString("Factory"));
    QVERIFY(liesBetweenNowAnd(begin, lastModifiedOf(root)));
}

void tst_ModificationHandler::modifierAndDateAreNotRecorded()
{
    Handler handler;
    handler.appendModifiedInstance("m", "o", "i", "d");

    QVERIFY(handler.setModifiedByAndCurrentDate(completeRoot(), "Factory"));

    QCOMPARE(itemsOf(handler), QStringList{"m|o|i|d"});
}

void tst_ModificationHandler::modifierAndDateOfANullRootAreRefusedOnce()
{
    LogCapture log;

    QVERIFY(!Handler().setModifiedByAndCurrentDate({}, "Factory"));

    COMPARE_LOG(log, warning(nullRoot));
}

void tst_ModificationHandler::modifierIsOverwrittenWhereTheDateIsMissing()
{
    const auto root = rootWithModifierOnly();
    LogCapture log;

    QVERIFY(!Handler().setModifiedByAndCurrentDate(root, "Tool"));

    COMPARE_LOG(log, warning(dateMissing));
    QCOMPARE(modifiedByOf(root), QString("Tool"));
}

void tst_ModificationHandler::dateIsStampedWhereTheModifierIsMissing()
{
    const auto root = rootWithDateOnly();
    const QDateTime begin = QDateTime::currentDateTime();
    LogCapture log;

    QVERIFY(!Handler().setModifiedByAndCurrentDate(root, "Tool"));

    COMPARE_LOG(log, warning(modifierMissing));
    QVERIFY(liesBetweenNowAnd(begin, lastModifiedOf(root)));
}

void tst_ModificationHandler::neitherModifierNorDateGivesBothWarnings()
{
    LogCapture log;

    QVERIFY(!Handler().setModifiedByAndCurrentDate(rootWithNeither(), "Tool"));

    COMPARE_LOG(log, warning(modifierMissing), warning(dateMissing));
}

QTEST_GUILESS_MAIN(tst_ModificationHandler)

#include "tst_ModificationHandler.moc"
