#include "ProcessData/ProcessMeasurementAttributes.h"
#include "support/LogCapture.h"

#include <limits>
#include <type_traits>

namespace {

/// Two entries, the first with a member that is none of the four.
QVariantList twoEntries()
{
    return {QVariantMap{{"unit", "K"},
                        {"unitText", QVariantMap{{"en", "kelvin"}}},
                        {"viewStart", -10.5},
                        {"viewEnd", 90},
                        {"colour", "red"}},
            QVariantMap{{"unit", "bar"}}};
}

QVariantMap entry(const ProcessMeasurementAttributes &attributes, int index)
{
    return attributes.getMeasurementAttributeObject().toList().value(index).toMap();
}

LogLine tooBig(int index, const QByteArray &array)
{
    return warning(
        QStringLiteral("Index to big %1 QJsonArray(%2)").arg(index).arg(QLatin1String(array)));
}

const QByteArray oneEntry = R"([{"unit":"K"}])";

} // namespace

class tst_ProcessMeasurementAttributes : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void destructorIsVirtual();
    void listComesBack();
    void jsonArrayIsTaken();
    void whatIsNoListLeavesNoEntry_data();
    void whatIsNoListLeavesNoEntry();
    void invalidVariantEmptiesTheList();

    void entryIsReplaced();
    void entryIsAppendedAtTheEnd();
    void indexPastTheEndIsRefused_data();
    void indexPastTheEndIsRefused();
    void entryIsGiven();
    void missingEntryIsReported_data();
    void missingEntryIsReported();
    void entryThatIsNoObjectIsEmpty();

    void memberIsSetAndTheOthersStay();
    void memberOpensAnEntryAtTheEnd();
    void settersWriteTheirMembers();
    void settersAreRefusedPastTheEnd_data();
    void settersAreRefusedPastTheEnd();
    void firstEntryIsOpenedInAnEmptyList();
    void viewStartAloneOpensAnEntry();
    void unitTextThatIsNoMapIsEmpty_data();
    void unitTextThatIsNoMapIsEmpty();

    void gettersReadTheirMembers();
    void missingMembersReadAsDefaults_data();
    void missingMembersReadAsDefaults();
    void gettersReportAMissingEntry_data();
    void gettersReportAMissingEntry();
    void membersOfAnotherTypeAreConverted();
};

void tst_ProcessMeasurementAttributes::destructorIsVirtual()
{
    QVERIFY(std::has_virtual_destructor_v<ProcessMeasurementAttributes>);
}

void tst_ProcessMeasurementAttributes::listComesBack()
{
    LogCapture log;
    ProcessMeasurementAttributes attributes(twoEntries());

    QCOMPARE(attributes.getMeasurementAttributeObject(), QVariant(twoEntries()));
    const QVariantList other{QVariantMap{{"viewEnd", 1.5}}};
    QVERIFY(attributes.setMeasurementAttributeObject(other));
    QCOMPARE(attributes.getMeasurementAttributeObject(), QVariant(other));
    QCOMPARE(attributes.getMeasurementAttributeObject().type(), QVariant::List);

    COMPARE_LOG(log);
}

void tst_ProcessMeasurementAttributes::jsonArrayIsTaken()
{
    const ProcessMeasurementAttributes attributes(
        QVariant(QJsonArray::fromVariantList(twoEntries())));

    QCOMPARE(attributes.getMeasurementAttributeObject(), QVariant(twoEntries()));
}

void tst_ProcessMeasurementAttributes::whatIsNoListLeavesNoEntry_data()
{
    QTest::addColumn<QVariant>("variant");

    QTest::newRow("invalid") << QVariant();
    QTest::newRow("number") << QVariant(5);
    QTest::newRow("map") << QVariant(QVariantMap{{"unit", "K"}});
    QTest::newRow("empty list") << QVariant(QVariantList());
}

void tst_ProcessMeasurementAttributes::whatIsNoListLeavesNoEntry()
{
    QFETCH(QVariant, variant);

    QCOMPARE(ProcessMeasurementAttributes(variant).getMeasurementAttributeObject(),
             QVariant(QVariantList()));
    ProcessMeasurementAttributes attributes(twoEntries());
    QVERIFY(attributes.setMeasurementAttributeObject(variant));
    QCOMPARE(attributes.getMeasurementAttributeObject(), QVariant(QVariantList()));
}

void tst_ProcessMeasurementAttributes::invalidVariantEmptiesTheList()
{
    ProcessMeasurementAttributes attributes(twoEntries());
    LogCapture log;

    QVERIFY(attributes.setMeasurementAttributeObject(QVariant()));

    COMPARE_LOG(log);
    QVERIFY(attributes.getMeasurementAttributeObject().isValid());
    QVERIFY(attributes.getMeasurementAttributeObject().toList().isEmpty());
}

void tst_ProcessMeasurementAttributes::entryIsReplaced()
{
    ProcessMeasurementAttributes attributes(twoEntries());
    LogCapture log;

    QVERIFY(attributes.setIndexedMeasurementAttributes(0, QJsonObject{{"unit", "Pa"}}));

    COMPARE_LOG(log);
    QCOMPARE(attributes.getMeasurementAttributeObject(),
             QVariant(QVariantList{QVariantMap{{"unit", "Pa"}}, twoEntries().at(1)}));
}

void tst_ProcessMeasurementAttributes::entryIsAppendedAtTheEnd()
{
    ProcessMeasurementAttributes attributes(twoEntries());
    LogCapture log;

    QVERIFY(attributes.setIndexedMeasurementAttributes(2, QJsonObject{{"unit", "Pa"}}));

    COMPARE_LOG(log);
    QCOMPARE(attributes.getMeasurementAttributeObject(),
             QVariant(twoEntries() + QVariantList{QVariantMap{{"unit", "Pa"}}}));
}

void tst_ProcessMeasurementAttributes::indexPastTheEndIsRefused_data()
{
    QTest::addColumn<int>("index");

    QTest::newRow("one past the end") << 2;
    QTest::newRow("largest") << std::numeric_limits<int>::max();
    QTest::newRow("negative") << -1;
    QTest::newRow("smallest") << std::numeric_limits<int>::min();
}

void tst_ProcessMeasurementAttributes::indexPastTheEndIsRefused()
{
    QFETCH(int, index);
    ProcessMeasurementAttributes attributes(QVariantList{QVariantMap{{"unit", "K"}}});
    LogCapture log;

    QVERIFY(!attributes.setIndexedMeasurementAttributes(index, QJsonObject{{"unit", "Pa"}}));
    COMPARE_LOG(log, tooBig(index, oneEntry));
    QVERIFY(!attributes.modifyMeasurementAttributes(index, "unit", "Pa"));
    COMPARE_LOG(log, tooBig(index, oneEntry));

    QCOMPARE(attributes.getMeasurementAttributeObject(),
             QVariant(QVariantList{QVariantMap{{"unit", "K"}}}));
}

void tst_ProcessMeasurementAttributes::entryIsGiven()
{
    const ProcessMeasurementAttributes attributes(twoEntries());
    LogCapture log;

    QCOMPARE(attributes.getIndexedMeasurementAttributes(0).toVariantMap(),
             twoEntries().at(0).toMap());
    QCOMPARE(attributes.getIndexedMeasurementAttributes(1), QJsonObject({{"unit", "bar"}}));

    COMPARE_LOG(log);
}

void tst_ProcessMeasurementAttributes::missingEntryIsReported_data()
{
    QTest::addColumn<int>("index");

    QTest::newRow("at the end") << 1;
    QTest::newRow("past the end") << 5;
    QTest::newRow("negative") << -1;
}

void tst_ProcessMeasurementAttributes::missingEntryIsReported()
{
    QFETCH(int, index);
    const ProcessMeasurementAttributes attributes(QVariantList{QVariantMap{{"unit", "K"}}});
    LogCapture log;

    QVERIFY(attributes.getIndexedMeasurementAttributes(index).isEmpty());

    COMPARE_LOG(log, tooBig(index, oneEntry));
}

void tst_ProcessMeasurementAttributes::entryThatIsNoObjectIsEmpty()
{
    ProcessMeasurementAttributes attributes(QVariantList{"text", 5});
    LogCapture log;

    QVERIFY(attributes.getIndexedMeasurementAttributes(0).isEmpty());
    QCOMPARE(attributes.getUnit(1), QString());
    QVERIFY(attributes.setUnit(1, "K"));

    COMPARE_LOG(log);
    QCOMPARE(attributes.getMeasurementAttributeObject(),
             QVariant(QVariantList{"text", QVariantMap{{"unit", "K"}}}));
}

void tst_ProcessMeasurementAttributes::memberIsSetAndTheOthersStay()
{
    ProcessMeasurementAttributes attributes(twoEntries());

    QVERIFY(attributes.modifyMeasurementAttributes(0, "colour", "blue"));
    QVERIFY(attributes.modifyMeasurementAttributes(0, "width", 2));
    QVERIFY(attributes.setUnit(0, "C"));

    QVariantMap expected = twoEntries().at(0).toMap();
    expected.insert("colour", "blue");
    expected.insert("width", 2);
    expected.insert("unit", "C");
    QCOMPARE(entry(attributes, 0), expected);
    QCOMPARE(entry(attributes, 1), twoEntries().at(1).toMap());
}

void tst_ProcessMeasurementAttributes::memberOpensAnEntryAtTheEnd()
{
    ProcessMeasurementAttributes attributes(twoEntries());

    QVERIFY(attributes.modifyMeasurementAttributes(2, "colour", QJsonValue()));

    QCOMPARE(attributes.getMeasurementAttributeObject().toList().size(), 3);
    QCOMPARE(attributes.getIndexedMeasurementAttributes(2),
             QJsonObject({{"colour", QJsonValue()}}));
}

void tst_ProcessMeasurementAttributes::settersWriteTheirMembers()
{
    ProcessMeasurementAttributes attributes{QVariant()};
    LogCapture log;

    QVERIFY(attributes.setUnit(0, "K"));
    QVERIFY(attributes.setUnitText(0, QVariantMap{{"en", "kelvin"}, {"de", "Kelvin"}}));
    QVERIFY(attributes.setViewStart(0, -1.5));
    QVERIFY(attributes.setViewEnd(0, 2e300));

    COMPARE_LOG(log);
    QCOMPARE(attributes.getIndexedMeasurementAttributes(0),
             QJsonObject({{"unit", "K"},
                          {"unitText", QJsonObject{{"en", "kelvin"}, {"de", "Kelvin"}}},
                          {"viewStart", -1.5},
                          {"viewEnd", 2e300}}));
}

void tst_ProcessMeasurementAttributes::settersAreRefusedPastTheEnd_data()
{
    QTest::addColumn<int>("index");

    QTest::newRow("past the end") << 2;
    QTest::newRow("negative") << -1;
}

void tst_ProcessMeasurementAttributes::settersAreRefusedPastTheEnd()
{
    QFETCH(int, index);
    ProcessMeasurementAttributes attributes(QVariantList{QVariantMap{{"unit", "K"}}});
    const LogLine refusal = tooBig(index, oneEntry);
    LogCapture log;

    QVERIFY(!attributes.setUnit(index, "C"));
    QVERIFY(!attributes.setUnitText(index, QVariantMap{{"en", "kelvin"}}));
    QVERIFY(!attributes.setViewStart(index, 1));
    QVERIFY(!attributes.setViewEnd(index, 2));

    COMPARE_LOG(log, refusal, refusal, refusal, refusal);
    QCOMPARE(attributes.getMeasurementAttributeObject(),
             QVariant(QVariantList{QVariantMap{{"unit", "K"}}}));
}

void tst_ProcessMeasurementAttributes::firstEntryIsOpenedInAnEmptyList()
{
    ProcessMeasurementAttributes attributes{QVariant()};
    LogCapture log;

    QVERIFY(!attributes.setUnit(1, "K"));
    COMPARE_LOG(log, tooBig(1, ""));
    QVERIFY(attributes.setUnit(0, "K"));

    COMPARE_LOG(log);
    QCOMPARE(attributes.getMeasurementAttributeObject(),
             QVariant(QVariantList{QVariantMap{{"unit", "K"}}}));
}

void tst_ProcessMeasurementAttributes::viewStartAloneOpensAnEntry()
{
    ProcessMeasurementAttributes attributes(twoEntries());

    QVERIFY(attributes.setViewStart(2, 1.5));

    QCOMPARE(attributes.getIndexedMeasurementAttributes(2), QJsonObject({{"viewStart", 1.5}}));
}

void tst_ProcessMeasurementAttributes::unitTextThatIsNoMapIsEmpty_data()
{
    QTest::addColumn<QVariant>("unitText");

    QTest::newRow("text") << QVariant("kelvin");
    QTest::newRow("list") << QVariant(QVariantList{"kelvin"});
    QTest::newRow("invalid") << QVariant();
}

void tst_ProcessMeasurementAttributes::unitTextThatIsNoMapIsEmpty()
{
    QFETCH(QVariant, unitText);
    ProcessMeasurementAttributes attributes(twoEntries());

    QVERIFY(attributes.setUnitText(0, unitText));

    QCOMPARE(attributes.getIndexedMeasurementAttributes(0).value("unitText"),
             QJsonValue(QJsonObject()));
    QCOMPARE(attributes.getUnitText(0), QVariant(QVariantMap()));
}

void tst_ProcessMeasurementAttributes::gettersReadTheirMembers()
{
    const ProcessMeasurementAttributes attributes(twoEntries());
    LogCapture log;

    QCOMPARE(attributes.getUnit(0), QString("K"));
    QCOMPARE(attributes.getUnit(1), QString("bar"));
    QCOMPARE(attributes.getUnitText(0), QVariant(QVariantMap{{"en", "kelvin"}}));
    QCOMPARE(attributes.getViewStart(0), -10.5);
    QCOMPARE(attributes.getViewEnd(0), 90.0);

    COMPARE_LOG(log);
}

void tst_ProcessMeasurementAttributes::missingMembersReadAsDefaults_data()
{
    QTest::addColumn<QVariantList>("list");

    QTest::newRow("other member") << QVariantList{QVariantMap{{"colour", "red"}}};
    QTest::newRow("empty entry") << QVariantList{QVariantMap()};
}

void tst_ProcessMeasurementAttributes::missingMembersReadAsDefaults()
{
    QFETCH(QVariantList, list);
    const ProcessMeasurementAttributes attributes(list);
    LogCapture log;

    QVERIFY(attributes.getUnit(0).isEmpty());
    QCOMPARE(attributes.getUnitText(0).type(), QVariant::String);
    QVERIFY(attributes.getUnitText(0).toString().isEmpty());
    QCOMPARE(attributes.getViewStart(0), 0.0);
    QCOMPARE(attributes.getViewEnd(0), 0.0);

    COMPARE_LOG(log);
}

void tst_ProcessMeasurementAttributes::gettersReportAMissingEntry_data()
{
    QTest::addColumn<int>("index");

    QTest::newRow("at the end") << 1;
    QTest::newRow("past the end") << 5;
    QTest::newRow("negative") << -1;
}

void tst_ProcessMeasurementAttributes::gettersReportAMissingEntry()
{
    QFETCH(int, index);
    const ProcessMeasurementAttributes attributes(QVariantList{QVariantMap{{"unit", "K"}}});
    LogCapture log;

    QVERIFY(attributes.getUnit(index).isEmpty());
    COMPARE_LOG(log, tooBig(index, oneEntry));
    QCOMPARE(attributes.getUnitText(index).type(), QVariant::String);
    COMPARE_LOG(log, tooBig(index, oneEntry));
    QCOMPARE(attributes.getViewStart(index), 0.0);
    COMPARE_LOG(log, tooBig(index, oneEntry));
    QCOMPARE(attributes.getViewEnd(index), 0.0);
    COMPARE_LOG(log, tooBig(index, oneEntry));
}

void tst_ProcessMeasurementAttributes::membersOfAnotherTypeAreConverted()
{
    const ProcessMeasurementAttributes attributes(QVariantList{
        QVariantMap{{"unit", 5}, {"unitText", "kelvin"}, {"viewStart", "1.5"}, {"viewEnd", true}}});

    QVERIFY(attributes.getUnit(0).isEmpty());
    QCOMPARE(attributes.getUnitText(0), QVariant("kelvin"));
    QCOMPARE(attributes.getViewStart(0), 0.0);
    QCOMPARE(attributes.getViewEnd(0), 0.0);
}

QTEST_GUILESS_MAIN(tst_ProcessMeasurementAttributes)

#include "tst_ProcessMeasurementAttributes.moc"
