// Operations on a root whose owner puts another one in its place as soon as something changes, as a
// program does that loads its configuration anew on a change.

#include "Configuration/ConfigurationAndProcessDataParser.h"
#include "Configuration/ConfigurationAndProcessDataTools.h"
#include "Configuration/InstanceTrees.h"
#include "Configuration/StampableRoots.h"
#include "Configuration/StampedDescriptions.h"
#include "ProcessDataManagement/ProcessDataBuilder.h"

#include <functional>

using Access = ConfigurationDataAndProcessDescriptionAccess;
using Base = ConfigurationAndProcessDataBase;
using Element = Base::BaseClassSharedPointer;
using Handler = ConfigurationModificationHandler;
using Tools = ConfigurationAndProcessDataTools;

namespace {

const char description[] = R"({
    "type": "treenode",
    "modifiedBy": "",
    "lastModified": "",
    "displayPosition": 7,
    "sizeOfSharedMemory": 8,
    "keyProcessDataMemory": "replaced",
    "value": {
        "level": {
            "type": "int32", "value": 1, "note": "",
            "displayPosition": 0, "offsetSharedMemory": 0
        },
        "table": {
            "type": "array", "value": [[1, 2]], "arrayInformation": [[{}], [{}, {}]],
            "displayPosition": 1, "offsetSharedMemory": 4
        }
    }
})";

Element parsedRoot(const QString &text = description)
{
    return ConfigurationAndProcessDataParser().parseFromJson(text, QString("config.json"));
}

/// A variable of an application, which holds another tree after the first change of its root.
class ReloadedRoot
{
public:
    ReloadedRoot()
    {
        QObject::connect(variable.data(), qOverload<>(&Base::propertyChanged), [this] {
            variable = parsedRoot();
            m_wasAlive = m_wasAlive && !m_first.isNull();
            ++m_changes;
        });
    }

    /// Whether the first root lived until all its signals were out, and is gone now.
    bool diedAfterwards() const { return m_changes > 0 && m_wasAlive && m_first.isNull(); }

    Element variable = parsedRoot();

private:
    Q_DISABLE_COPY(ReloadedRoot)

    // Not by its signal destroyed(), which a node keeps to itself.
    const QWeakPointer<Base> m_first = variable;
    int m_changes = 0;
    bool m_wasAlive = true;
};

using Operation = std::function<bool(Element &)>;

bool touchRoot(Element &root)
{
    return Handler().touch(root, "module", "object", "instance", "Device");
}

bool writeValue(Element &root)
{
    return Tools::setConfigValueWithStatus("level", root, 2) == Base::SetValueChanged;
}

bool writeCell(Element &root)
{
    return Tools::setConfigValueWithStatus("table#0,1", root, 5) == Base::SetValueChanged;
}

bool writeProperty(Element &root)
{
    return Tools::setPropertyWithStatus("level", "note", root, "x") == Base::SetValueChanged;
}

bool setSize(Element &root)
{
    int size = 0;
    return ProcessDataBuilder().adaptSizeOfSharedMemoryInRoot(root, parsedRoot(), size);
}

bool moveOffsets(Element &root)
{
    int offset = 0;
    return ProcessDataBuilder().adaptOffsetOfSharedMemoryInPart(parsedRoot(), root, offset);
}

bool setPosition(Element &root)
{
    return ProcessDataBuilder().addAndRemovePropertiesForTreeNodeInPart(parsedRoot(), root);
}

bool setOneProperty(Element &root)
{
    bool changed = false;
    return ProcessDataBuilder().setPropertyFromSharedMemory(root, "displayPosition", 8, changed)
           && changed;
}

} // namespace

Q_DECLARE_METATYPE(Operation)

class tst_ReplacedRoots : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void rootLivesUntilTheOperationEnds_data();
    void rootLivesUntilTheOperationEnds();
    void touchStampsTheRootThatItWasGiven();
    void dateAndModifierGoToTheSameRoot();
    void mergeGoesOnWithTheTreesThatItWasGiven();
    void walkGoesOnWithTheTreeThatItWasGiven();
};

void tst_ReplacedRoots::rootLivesUntilTheOperationEnds_data()
{
    QTest::addColumn<Operation>("operation");

    QTest::newRow("touch") << Operation(touchRoot);
    QTest::newRow("modifier") << Operation(
        [](Element &root) { return Handler().setModifiedBy(root, "Tool"); });
    QTest::newRow("date") << Operation(
        [](Element &root) { return Handler().setLastModified(root, "today"); });
    QTest::newRow("modifier and date") << Operation(
        [](Element &root) { return Handler().setModifiedByAndCurrentDate(root, "Tool"); });
    QTest::newRow("value by URL") << Operation(writeValue);
    QTest::newRow("cell by URL") << Operation(writeCell);
    QTest::newRow("property by URL") << Operation(writeProperty);
    QTest::newRow("size of the memory") << Operation(setSize);
    QTest::newRow("offsets of a part") << Operation(moveOffsets);
    QTest::newRow("position of a part") << Operation(setPosition);
    QTest::newRow("property of a build") << Operation(setOneProperty);
}

void tst_ReplacedRoots::rootLivesUntilTheOperationEnds()
{
    QFETCH(Operation, operation);
    ReloadedRoot root;

    QVERIFY(operation(root.variable));

    QVERIFY(root.diedAfterwards());
}

void tst_ReplacedRoots::touchStampsTheRootThatItWasGiven()
{
    ReloadedRoot root;
    const Element first = root.variable;
    LogCapture log;

    QVERIFY(touchRoot(root.variable));

    QCOMPARE(log.take(), QList<LogLine>());
    QCOMPARE(modifiedByOf(first), QString("Device"));
    QVERIFY(!lastModifiedOf(first).isEmpty());
    QCOMPARE(modifiedByOf(root.variable) + lastModifiedOf(root.variable), QString());
}

void tst_ReplacedRoots::dateAndModifierGoToTheSameRoot()
{
    ReloadedRoot root;
    const Element first = root.variable;

    QVERIFY(Handler().setModifiedByAndCurrentDate(root.variable, "Tool"));

    QCOMPARE(modifiedByOf(first), QString("Tool"));
    QVERIFY(!lastModifiedOf(first).isEmpty());
    QCOMPARE(modifiedByOf(root.variable) + lastModifiedOf(root.variable), QString());
}

void tst_ReplacedRoots::mergeGoesOnWithTheTreesThatItWasGiven()
{
    ReloadedRoot root;
    ReloadedRoot part;
    const Element firstRoot = root.variable;
    const Element firstPart = part.variable;
    int size = 0;
    int offset = 0;

    QVERIFY(
        ProcessDataBuilder().buildProcessData(root.variable, part.variable, "part", size, offset));

    QCOMPARE(firstRoot->getLeaf(QString("part")), firstPart);
    QCOMPARE(firstRoot->getProperty("sizeOfSharedMemory"), QVariant(16));
    QCOMPARE(firstPart->getProperty("displayPosition"), QVariant(2));
    QCOMPARE(root.variable->getNumberOfChilds(), 2);
}

void tst_ReplacedRoots::walkGoesOnWithTheTreeThatItWasGiven()
{
    const WorkingDirectory directory;
    writeFile("top/folder.json", "{}");
    writeFile("top/a.config.json", stampable("A"));
    writeFile("top/b.config.json", stampable("B"));
    Element variable;
    QVERIFY(Access::parseConfigDir(variable, QFileInfo("top")));
    const Element second = variable->getLeaf(QString("b"));
    QObject::connect(variable->getLeaf(QString("a")).data(), qOverload<>(&Base::propertyChanged),
                     [&variable] { variable = parsedRoot(); });
    LogCapture log;

    QVERIFY(Access::frameConfigDir(variable, "module", "object", QFileInfo("top"), "top"));

    QCOMPARE(log.take(), QList<LogLine>());
    QCOMPARE(modifiedByOf(second), QString("Device"));
    QCOMPARE(readFile("top/b.config.json"), stamped("B", lastModifiedOf(second)));
}

QTEST_GUILESS_MAIN(tst_ReplacedRoots)
#include "tst_ReplacedRoots.moc"
