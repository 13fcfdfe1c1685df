#include "Configuration/ConfigurationAndProcessDataTreeNode.h"
#include "Configuration/ConfigurationDataValue.h"
#include "ProcessData/Linux/ProcessDataValue.h"
#include "support/FakeBufferHandler.h"
#include "support/LogCapture.h"
#include "support/SlotDescription.h"

using namespace ProcessDataDefinitions;

namespace {

const quint32 bufferSize = 64;

SlotDescription int32At(quint32 offset)
{
    return {QStringLiteral("int32"), offset, 4};
}

} // namespace

class tst_ProcessDataValueBinding : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void hasNoSignalsOfItsOwn();
    void constructionSaysNothing();
    void unboundElementIsNotValid();
    void unboundElementRefusesReadsAndWrites();
    void nullHandlerLeavesAnUnboundElementUnbound();
    void nullHandlerLeavesAnEarlierBinding();
    void bindingAgainRunsTheCheckAgain();
    void bindingAgainWithoutPermissionProtectsAgain();
    void laterChangesOfPropertiesHaveNoEffect();
    void invalidElementLogsTheReasonOnce();
    void withoutTheReadOnlyPropertyEverybodyMayWrite();
    void numbersMayBeWrittenAsText();
    void leafIsFoundByUrl();
    void urlToNowhereGivesNoLeaf();
    void urlToAnotherClassGivesNoLeaf();
};

void tst_ProcessDataValueBinding::hasNoSignalsOfItsOwn()
{
    const QMetaObject &metaObject = ProcessDataValue::staticMetaObject;

    QCOMPARE(metaObject.className(), "ProcessDataValue");
    QCOMPARE(metaObject.superClass(), &ConfigurationAndProcessDataBase::staticMetaObject);
    QCOMPARE(metaObject.methodCount(), metaObject.methodOffset());
}

void tst_ProcessDataValueBinding::constructionSaysNothing()
{
    LogCapture log;

    const ProcessDataValue known(int32At(0).toJson(), nullptr);
    const ProcessDataValue unknown(SlotDescription{QStringLiteral("nonsense")}.toJson(), nullptr);
    const ProcessDataValue empty(QJsonObject(), nullptr);

    COMPARE_LOG(log);
}

void tst_ProcessDataValueBinding::unboundElementIsNotValid()
{
    const ProcessDataValue element(int32At(0).toJson(), nullptr);
    LogCapture log;

    QCOMPARE(element.isObjectValid(), false);

    COMPARE_LOG(log, warning(QStringLiteral("No BufferHandlerInterface!")));
}

void tst_ProcessDataValueBinding::unboundElementRefusesReadsAndWrites()
{
    ProcessDataValue element(int32At(0).toJson(), nullptr);
    ProcessValue value(7, PROCESS_VALUE_ERROR_TYPE_TIMEOUT);
    const auto message = warning(QStringLiteral("No BufferHandlerInterface!"));
    LogCapture log;

    element.getValue(value, false);
    element.getValueNoLock(value, false);
    QCOMPARE(element.setValue(value), false);
    QCOMPARE(element.setValueNoLock(value), false);

    COMPARE_LOG(log, message, message, message, message);
    QCOMPARE(value.getValue(), QVariant(7));
    QCOMPARE(value.getErrorType(), PROCESS_VALUE_ERROR_TYPE_TIMEOUT);
}

void tst_ProcessDataValueBinding::nullHandlerLeavesAnUnboundElementUnbound()
{
    ProcessDataValue element(int32At(0).toJson(), nullptr);
    LogCapture log;

    element.setBufferHandlerInterface(nullptr, true);

    COMPARE_LOG(log, warning(QStringLiteral("Pointer to buffer handler is null.")));
    QCOMPARE(element.setValue({1, PROCESS_VALUE_ERROR_TYPE_VALID}), false);
    COMPARE_LOG(log, warning(QStringLiteral("No BufferHandlerInterface!")));
}

void tst_ProcessDataValueBinding::nullHandlerLeavesAnEarlierBinding()
{
    SlotDescription description = int32At(8);
    description.readOnly = true;
    ProcessDataValue element(description.toJson(), nullptr);
    FakeBufferHandler handler(bufferSize);
    element.setBufferHandlerInterface(&handler, true);
    LogCapture log;

    element.setBufferHandlerInterface(nullptr, false);

    COMPARE_LOG(log, warning(QStringLiteral("Pointer to buffer handler is null.")));
    QCOMPARE(element.setValue({-1, PROCESS_VALUE_ERROR_TYPE_VALID}), true);
    QCOMPARE(handler.writtenHex(8, 4), QByteArray("ffffffff"));
    COMPARE_LOG(log);
}

void tst_ProcessDataValueBinding::bindingAgainRunsTheCheckAgain()
{
    ProcessDataValue element(int32At(40).toJson(), nullptr);
    FakeBufferHandler small(39);
    FakeBufferHandler large(bufferSize);
    LogCapture log;

    element.setBufferHandlerInterface(&small, true);
    COMPARE_LOG(log, warning(QStringLiteral("End of memory reached 40 0")));
    QCOMPARE(element.setValue({1, PROCESS_VALUE_ERROR_TYPE_VALID}), false);
    COMPARE_LOG(log, warning(QStringLiteral("Object is not valid")));

    element.setBufferHandlerInterface(&large, true);
    QCOMPARE(element.setValue({-1, PROCESS_VALUE_ERROR_TYPE_VALID}), true);
    QCOMPARE(large.writtenHex(40, 4), QByteArray("ffffffff"));
    COMPARE_LOG(log);
    QCOMPARE(small.takeCalls(), QStringList());

    element.setBufferHandlerInterface(&small, true);
    COMPARE_LOG(log, warning(QStringLiteral("End of memory reached 40 0")));
    QCOMPARE(element.setValue({1, PROCESS_VALUE_ERROR_TYPE_VALID}), false);
    COMPARE_LOG(log, warning(QStringLiteral("Object is not valid")));
}

void tst_ProcessDataValueBinding::bindingAgainWithoutPermissionProtectsAgain()
{
    SlotDescription description = int32At(0);
    description.readOnly = true;
    ProcessDataValue element(description.toJson(), nullptr);
    FakeBufferHandler handler(bufferSize);
    LogCapture log;

    element.setBufferHandlerInterface(&handler, true);
    QCOMPARE(element.setValue({1, PROCESS_VALUE_ERROR_TYPE_VALID}), true);
    COMPARE_LOG(log);

    element.setBufferHandlerInterface(&handler, false);
    QCOMPARE(element.setValue({2, PROCESS_VALUE_ERROR_TYPE_VALID}), false);
    QCOMPARE(log.take().size(), 1);
}

void tst_ProcessDataValueBinding::laterChangesOfPropertiesHaveNoEffect()
{
    using Definitions = ConfigurationAndProcessDataDefinitions;
    ProcessDataValue element(int32At(8).toJson(), nullptr);
    FakeBufferHandler handler(bufferSize);
    element.setBufferHandlerInterface(&handler, false);

    LogCapture log;
    element.addProperty(Definitions::getKeyDataPropertyType(), QStringLiteral("nonsense"));
    element.addProperty(Definitions::getKeyDataPropertyOffsetSharedMemory(), 1000);
    element.addProperty(Definitions::getKeyDataPropertySizeValue(), 3);
    element.addProperty(Definitions::getKeyDataPropertySizeMetadata(), 4);
    element.addProperty(Definitions::getKeyDataPropertyReadOnly(), true);
    log.take(); // each overwriting says so

    QCOMPARE(element.setValue({-1, PROCESS_VALUE_ERROR_TYPE_VALID}), true);
    QCOMPARE(handler.writtenHex(0, 16), QByteArray("0000000000000000ffffffff00000000"));
    QCOMPARE(element.isObjectValid(), true);
    COMPARE_LOG(log);
}

void tst_ProcessDataValueBinding::invalidElementLogsTheReasonOnce()
{
    ProcessDataValue element(SlotDescription{QStringLiteral("double"), 0, 4}.toJson(), nullptr);
    FakeBufferHandler handler(bufferSize);
    ProcessValue value(7, PROCESS_VALUE_ERROR_TYPE_TIMEOUT);
    LogCapture log;

    element.setBufferHandlerInterface(&handler, true);
    COMPARE_LOG(log,
                warning(QStringLiteral("Wrong size of data type in Json:  4  !=  8 \"double\"")));

    element.getValue(value);
    element.getValueNoLock(value);
    QCOMPARE(element.setValue(value), false);
    QCOMPARE(element.setValueNoLock(value), false);

    COMPARE_LOG(log, warning(QStringLiteral("Object is not valid.")),
                warning(QStringLiteral("Object is not valid.")),
                warning(QStringLiteral("Object is not valid")),
                warning(QStringLiteral("Object is not valid")));
    QCOMPARE(value.getValue(), QVariant(7));
    QCOMPARE(value.getErrorType(), PROCESS_VALUE_ERROR_TYPE_TIMEOUT);
    QCOMPARE(handler.takeCalls(), QStringList());
}

void tst_ProcessDataValueBinding::withoutTheReadOnlyPropertyEverybodyMayWrite()
{
    ProcessDataValue element(int32At(0).toJson(), nullptr);
    FakeBufferHandler handler(bufferSize);
    LogCapture log;

    element.setBufferHandlerInterface(&handler, false);

    QCOMPARE(element.setValue({-1, PROCESS_VALUE_ERROR_TYPE_VALID}), true);
    QCOMPARE(handler.writtenHex(0, 4), QByteArray("ffffffff"));
    COMPARE_LOG(log);
}

void tst_ProcessDataValueBinding::numbersMayBeWrittenAsText()
{
    using Definitions = ConfigurationAndProcessDataDefinitions;
    const QJsonObject json{
        {Definitions::getKeyDataPropertyType(), QStringLiteral("int16")},
        {Definitions::getKeyDataPropertyOffsetSharedMemory(), QStringLiteral("6")},
        {Definitions::getKeyDataPropertySizeValue(), QStringLiteral("2")},
    };
    ProcessDataValue element(json, nullptr);
    FakeBufferHandler handler(bufferSize);
    LogCapture log;

    element.setBufferHandlerInterface(&handler, false);

    QCOMPARE(element.setValue({-1, PROCESS_VALUE_ERROR_TYPE_VALID}), true);
    QCOMPARE(handler.writtenHex(4, 6), QByteArray("0000ffff0000"));
    COMPARE_LOG(log);
}

void tst_ProcessDataValueBinding::leafIsFoundByUrl()
{
    ConfigurationAndProcessDataTreeNode root(QJsonObject(), nullptr);
    const auto node = QSharedPointer<ConfigurationAndProcessDataTreeNode>::create(QJsonObject(),
                                                                                  nullptr);
    const auto leaf = QSharedPointer<ProcessDataValue>::create(int32At(0).toJson(), nullptr);
    node->addElement(QStringLiteral("level"), leaf);
    root.addElement(QStringLiteral("tank"), node);
    LogCapture log;

    QCOMPARE(root.getLeafProcessDataValue(QStringLiteral("tank/level")), leaf);
    QCOMPARE(root.getLeafProcessDataValue(QStringLiteral("/tank//level/")), leaf);

    COMPARE_LOG(log);
}

void tst_ProcessDataValueBinding::urlToNowhereGivesNoLeaf()
{
    ConfigurationAndProcessDataTreeNode root(QJsonObject(), nullptr);
    root.addElement(QStringLiteral("level"),
                    QSharedPointer<ProcessDataValue>::create(int32At(0).toJson(), nullptr));

    QVERIFY(root.getLeafProcessDataValue(QStringLiteral("pressure")).isNull());
    QVERIFY(root.getLeafProcessDataValue(QString()).isNull());
}

void tst_ProcessDataValueBinding::urlToAnotherClassGivesNoLeaf()
{
    ConfigurationAndProcessDataTreeNode root(QJsonObject(), nullptr);
    root.addElement(
        QStringLiteral("node"),
        QSharedPointer<ConfigurationAndProcessDataTreeNode>::create(QJsonObject(), nullptr));
    root.addElement(QStringLiteral("setting"),
                    QSharedPointer<ConfigurationDataValue>::create(int32At(0).toJson(), nullptr));
    LogCapture log;

    QVERIFY(root.getLeafProcessDataValue(QStringLiteral("node")).isNull());
    QVERIFY(root.getLeafProcessDataValue(QStringLiteral("setting")).isNull());

    COMPARE_LOG(log);
}

QTEST_GUILESS_MAIN(tst_ProcessDataValueBinding)
#include "tst_ProcessDataValueBinding.moc"
