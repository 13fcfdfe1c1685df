#include "Configuration/ConfigurationAndProcessDataTreeNode.h"
#include "Configuration/ConfigurationDataValue.h"
#include "support/LogCapture.h"

#include <QSignalSpy>
#include <QtTest>

#include <cstring>

using Base = ConfigurationAndProcessDataBase;
using TreeNode = ConfigurationAndProcessDataTreeNode;
using Leaf = ConfigurationDataValue;
using Element = Base::BaseClassSharedPointer;

namespace {

const auto changedWithArguments = qOverload<const QString &, const QVariant &>(
    &Base::propertyChanged);
const auto changed = qOverload<>(&Base::propertyChanged);

/// Writes down every signal of an element in the order of emission.
class SignalNotes
{
public:
    explicit SignalNotes(Base *element)
    {
        QObject::connect(element, changedWithArguments, element,
                         [this](const QString &key, const QVariant &value) {
                             m_notes.append(key + QLatin1Char('=') + value.toString());
                         });
        QObject::connect(element, changed, element,
                         [this] { m_notes.append(QStringLiteral("changed")); });
        if (auto *leaf = qobject_cast<Leaf *>(element)) {
            QObject::connect(leaf, &Leaf::valueChanged, leaf, [this](const QVariant &value) {
                m_notes.append(QStringLiteral("valueChanged ") + value.toString());
            });
        }
    }

    QStringList take()
    {
        QStringList notes;
        notes.swap(m_notes);
        return notes;
    }

private:
    QStringList m_notes;
};

/// Stores nothing and answers every write with one status.
template <typename ElementClass>
class FixedStatus : public ElementClass
{
public:
    explicit FixedStatus(Base::SetValueStatus status)
        : ElementClass(QJsonObject(), nullptr)
        , m_status(status)
    {
    }

    Base::SetValueStatus setPropertyNoSignalEmit(const QString &key, const QVariant &value) override
    {
        m_writes.append(key + QLatin1Char('=') + value.toString());
        return m_status;
    }

    QStringList m_writes;

private:
    Base::SetValueStatus m_status;
};

/// Notes what the short forms for the value hand on.
class ValueForms : public Leaf
{
public:
    ValueForms() : Leaf(QJsonObject(), nullptr) { }

    QVariant getProperty(const QString &key) const override { return "got " + key; }
    SetValueStatus setProperty(const QString &key, const QVariant &value) override
    {
        m_calls.append("set " + key + '=' + value.toString());
        return SetValueRegularExpressionMismatch;
    }
    SetValueStatus setPropertyNoSignalEmit(const QString &key, const QVariant &value) override
    {
        m_calls.append("set silently " + key + '=' + value.toString());
        return SetValueTargetMissing;
    }

    QStringList m_calls;
};

/// The offset of a virtual operation in its table, as the C++ ABI of Linux keeps it in a pointer to
/// the operation.
template <typename Operation>
std::ptrdiff_t slotOf(Operation operation)
{
    static_assert(sizeof(operation) == 2 * sizeof(std::ptrdiff_t));
    std::ptrdiff_t slot = 0;
    std::memcpy(&slot, &operation, sizeof(slot));
    return (slot - 1) / static_cast<std::ptrdiff_t>(sizeof(void *));
}

} // namespace

class tst_TreeElementsSignals : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void aChangedPropertyEmitsBothSignalsInOrder();
    void aChangedValueEmitsValueChangedLast();
    void aNestedPathIsPassedAsTheCallerWroteIt();
    void aNestedWriteBelowTheValueEmitsNoValueChanged();
    void theSignalsComeAfterTheWrite();
    void anUnchangedValueEmitsNothing();
    void aFailedWriteEmitsNothing();
    void silentWritesEmitNothing();
    void addingAndRemovingEmitNothing();
    void onlyStatusZeroEmits_data();
    void onlyStatusZeroEmits();
    void setPropertyWritesByTheVirtualOperation();
    void theShortFormsOfTheValueAreVirtualCalls();
    void aChildAddedByHandDoesNotForward();
    void theSignalOfANodeIsNoSignalOfItsChildren();
    void aDestroyedNodeHasNoConnectionsLeft();
    void signalsAndVirtualOperationsKeepTheirOrder();
};

void tst_TreeElementsSignals::aChangedPropertyEmitsBothSignalsInOrder()
{
    TreeNode node({{"type", "treenode"}, {"unit", "mm"}}, nullptr);
    SignalNotes notes(&node);
    LogCapture log;

    QCOMPARE(node.setProperty("unit", "bar"), Base::SetValueChanged);

    QCOMPARE(notes.take(), (QStringList{"unit=bar", "changed"}));
    QCOMPARE(node.getProperty("unit"), QVariant("bar"));
    COMPARE_LOG(log);
}

void tst_TreeElementsSignals::aChangedValueEmitsValueChangedLast()
{
    Leaf leaf({{"type", "int32"}, {"value", 1}, {"unit", "mm"}}, nullptr);
    SignalNotes notes(&leaf);

    QCOMPARE(leaf.setValue(2), Base::SetValueChanged);
    QCOMPARE(notes.take(), (QStringList{"value=2", "changed", "valueChanged 2"}));

    QCOMPARE(leaf.setProperty("value", 3), Base::SetValueChanged);
    QCOMPARE(notes.take(), (QStringList{"value=3", "changed", "valueChanged 3"}));

    QCOMPARE(leaf.setProperty("unit", "K"), Base::SetValueChanged);
    QCOMPARE(notes.take(), (QStringList{"unit=K", "changed"}));
    QCOMPARE(leaf.getValue(), QVariant(3));
}

void tst_TreeElementsSignals::aNestedPathIsPassedAsTheCallerWroteIt()
{
    const QJsonArray points{QJsonObject{{"x", 1.0}}, QJsonObject{{"x", 2.0}}};
    Leaf leaf({{"points", points}}, nullptr);
    SignalNotes notes(&leaf);

    QCOMPARE(leaf.setProperty("points[1]/x", 5), Base::SetValueChanged);

    QCOMPARE(notes.take(), (QStringList{"points[1]/x=5", "changed"}));
}

void tst_TreeElementsSignals::aNestedWriteBelowTheValueEmitsNoValueChanged()
{
    Leaf leaf({{"type", "array"}, {"value", QJsonArray{1, 2}}}, nullptr);
    Leaf record({{"value", QJsonObject{{"a", 1}}}}, nullptr);
    SignalNotes notes(&leaf);
    SignalNotes recordNotes(&record);

    QCOMPARE(leaf.setProperty("value[1]", 7), Base::SetValueChanged);
    QCOMPARE(record.setProperty("value/a", 7), Base::SetValueChanged);

    QCOMPARE(notes.take(), (QStringList{"value[1]=7", "changed"}));
    QCOMPARE(recordNotes.take(), (QStringList{"value/a=7", "changed"}));
}

void tst_TreeElementsSignals::theSignalsComeAfterTheWrite()
{
    Leaf leaf({{"value", 1}}, nullptr);
    QVariantList seen;
    QObject::connect(&leaf, changedWithArguments, &leaf, [&] { seen.append(leaf.getValue()); });
    QObject::connect(&leaf, changed, &leaf, [&] { seen.append(leaf.getValue()); });
    QObject::connect(&leaf, &Leaf::valueChanged, &leaf, [&] { seen.append(leaf.getValue()); });

    leaf.setValue(2);

    QCOMPARE(seen, (QVariantList{2, 2, 2}));
}

void tst_TreeElementsSignals::anUnchangedValueEmitsNothing()
{
    Leaf leaf({{"type", "int32"}, {"value", 1}}, nullptr);
    SignalNotes notes(&leaf);
    LogCapture log;

    QCOMPARE(leaf.setValue(1), Base::SetValueUnchanged);
    QCOMPARE(leaf.setProperty("value", "1"), Base::SetValueUnchanged);

    QVERIFY(notes.take().isEmpty());
    QCOMPARE(leaf.getValue().userType(), int(QMetaType::Int));
    COMPARE_LOG(log);
}

void tst_TreeElementsSignals::aFailedWriteEmitsNothing()
{
    Leaf leaf({{"a", QJsonObject{{"b", 1}}}}, nullptr);
    SignalNotes notes(&leaf);
    LogCapture log;

    QCOMPARE(leaf.setValue(1), Base::SetValuePropertyPathInvalid);
    COMPARE_LOG(log, warning("Key not found \"value\""));
    QCOMPARE(leaf.setProperty("", 1), Base::SetValuePropertyPathInvalid);
    COMPARE_LOG(log, warning("Key is empty"));
    QCOMPARE(leaf.setProperty("a/c", 1), Base::SetValueTargetMissing);
    COMPARE_LOG(log, warning("Key not found \"c\""));

    QVERIFY(notes.take().isEmpty());
}

void tst_TreeElementsSignals::silentWritesEmitNothing()
{
    Leaf leaf({{"value", 1}, {"unit", "mm"}}, nullptr);
    SignalNotes notes(&leaf);

    QCOMPARE(leaf.setValueNoSignalEmit(2), Base::SetValueChanged);
    QCOMPARE(leaf.setPropertyNoSignalEmit("unit", "K"), Base::SetValueChanged);
    QCOMPARE(leaf.setValueNoSignalEmit(2), Base::SetValueUnchanged);

    QCOMPARE(leaf.getValue(), QVariant(2));
    QCOMPARE(leaf.getProperty("unit"), QVariant("K"));
    QVERIFY(notes.take().isEmpty());
}

void tst_TreeElementsSignals::addingAndRemovingEmitNothing()
{
    TreeNode node({{"unit", "mm"}}, nullptr);
    SignalNotes notes(&node);

    node.addProperty("a", 1);
    node.addProperties({{"b", 2}});
    node.removeProperties({"a", "unit"});
    node.addElement("child", Element(new Leaf({}, nullptr)));
    node.deleteElement("child");

    QVERIFY(notes.take().isEmpty());
}

void tst_TreeElementsSignals::onlyStatusZeroEmits_data()
{
    QTest::addColumn<int>("status");
    QTest::addColumn<int>("emissions");

    QTest::newRow("changed") << 0 << 1;
    QTest::newRow("unchanged") << 1 << 0;
    QTest::newRow("target missing") << 2 << 0;
    QTest::newRow("pattern mismatch") << 3 << 0;
    QTest::newRow("path invalid") << 4 << 0;
}

void tst_TreeElementsSignals::onlyStatusZeroEmits()
{
    QFETCH(int, status);
    QFETCH(int, emissions);
    FixedStatus<Leaf> leaf(static_cast<Base::SetValueStatus>(status));
    const QSignalSpy withArguments(&leaf, changedWithArguments);
    const QSignalSpy withoutArguments(&leaf, changed);
    const QSignalSpy value(&leaf, &Leaf::valueChanged);

    QCOMPARE(int(leaf.setProperty("value", 1)), status);

    QCOMPARE(withArguments.count(), emissions);
    QCOMPARE(withoutArguments.count(), emissions);
    QCOMPARE(value.count(), emissions);
}

void tst_TreeElementsSignals::setPropertyWritesByTheVirtualOperation()
{
    FixedStatus<Base> base(Base::SetValueChanged);
    FixedStatus<Leaf> leaf(Base::SetValueUnchanged);

    QCOMPARE(base.setProperty("a/b", 1), Base::SetValueChanged);
    QCOMPARE(leaf.setProperty("c", 2), Base::SetValueUnchanged);

    QCOMPARE(base.m_writes, QStringList{"a/b=1"});
    QCOMPARE(leaf.m_writes, QStringList{"c=2"});
}

void tst_TreeElementsSignals::theShortFormsOfTheValueAreVirtualCalls()
{
    ValueForms leaf;

    QCOMPARE(leaf.getValue(), QVariant("got value"));
    QCOMPARE(leaf.setValue(1), Base::SetValueRegularExpressionMismatch);
    QCOMPARE(leaf.setValueNoSignalEmit(2), Base::SetValueTargetMissing);
    QCOMPARE(leaf.m_calls, (QStringList{"set value=1", "set silently value=2"}));
}

void tst_TreeElementsSignals::aChildAddedByHandDoesNotForward()
{
    TreeNode node({{"type", "treenode"}}, nullptr);
    const auto leaf = QSharedPointer<Leaf>::create(QJsonObject{{"value", 1}}, nullptr);
    node.addElement("a", leaf);
    SignalNotes notes(&node);
    SignalNotes leafNotes(leaf.data());

    leaf->setValue(2);

    QVERIFY(notes.take().isEmpty());
    QCOMPARE(leafNotes.take().size(), 3);
}

void tst_TreeElementsSignals::theSignalOfANodeIsNoSignalOfItsChildren()
{
    TreeNode node({{"type", "treenode"}, {"unit", "mm"}}, nullptr);
    const auto leaf = QSharedPointer<Leaf>::create(QJsonObject{{"unit", "mm"}}, nullptr);
    node.addElement("a", leaf);
    SignalNotes leafNotes(leaf.data());

    node.setProperty("unit", "K");

    QVERIFY(leafNotes.take().isEmpty());
    QCOMPARE(leaf->getProperty("unit"), QVariant("mm"));
}

void tst_TreeElementsSignals::aDestroyedNodeHasNoConnectionsLeft()
{
    // QObject announces its end after the node's own destructor has cut all connections.
    int announcements = 0;
    {
        TreeNode node({}, nullptr);
        QObject::connect(&node, &QObject::destroyed, this, [&] { ++announcements; });
    }
    QCOMPARE(announcements, 0);
    {
        Leaf leaf({}, nullptr);
        QObject::connect(&leaf, &QObject::destroyed, this, [&] { ++announcements; });
    }
    QCOMPARE(announcements, 1);
}

void tst_TreeElementsSignals::signalsAndVirtualOperationsKeepTheirOrder()
{
    using Text = QString;
    using List = QStringList;
    const QVector<std::ptrdiff_t> slots_{
        slotOf(static_cast<const Element (Base::*)(const Text &)>(&Base::getLeaf)),
        slotOf(static_cast<const Element (Base::*)(const List &)>(&Base::getLeaf)),
        slotOf(static_cast<bool (Base::*)(const Text &)>(&Base::isUrlValid)),
        slotOf(static_cast<bool (Base::*)(const List &)>(&Base::isUrlValid)),
        slotOf(&Base::getProperty),
        slotOf(&Base::hasProperty),
        slotOf(&Base::setProperty),
        slotOf(&Base::setPropertyNoSignalEmit),
        slotOf(&Base::addProperty),
        slotOf(&Base::addProperties),
        slotOf(&Base::removeProperties),
        slotOf(&Base::getProperties),
        slotOf(&Base::getContentAsQJsonObject),
        slotOf(&Base::collectElements),
        slotOf(&Base::collectUrlsOfElements),
        slotOf(&TreeNode::addElement),
        slotOf(&TreeNode::deleteElement),
    };
    for (int i = 1; i < slots_.size(); ++i) {
        QCOMPARE(slots_.at(i), slots_.first() + i);
    }

    const QMetaObject &meta = Base::staticMetaObject;
    QCOMPARE(meta.method(meta.methodOffset()).methodSignature(),
             QByteArray("propertyChanged(QString,QVariant)"));
    QCOMPARE(meta.method(meta.methodOffset() + 1).methodSignature(),
             QByteArray("propertyChanged()"));
    const QMetaObject &leafMeta = Leaf::staticMetaObject;
    QCOMPARE(leafMeta.method(leafMeta.methodOffset()).methodSignature(),
             QByteArray("valueChanged(QVariant)"));
}

QTEST_GUILESS_MAIN(tst_TreeElementsSignals)

#include "tst_TreeElementsSignals.moc"
