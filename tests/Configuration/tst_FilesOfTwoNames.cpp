#include "Configuration/InstanceTrees.h"
#include "Configuration/StampedDescriptions.h"
#include "support/LogCapture.h"

namespace {

using Access = ConfigurationDataAndProcessDescriptionAccess;
using Base = ConfigurationAndProcessDataBase;

Base::BaseClassSharedPointer parsedTop()
{
    return Access::getParsedConfigurationProcessDescription(QDir("base"), "top", false);
}

bool write(const Base::BaseClassSharedPointer &root)
{
    return Access::setParsedConfigurationProcessDescription(QDir("base"), "module", "object", "top",
                                                            root, false);
}

void setValue(const Base::BaseClassSharedPointer &root, const QString &url, const QString &value)
{
    QCOMPARE(int(root->getLeaf(url)->setProperty("value", value)), int(Base::SetValueChanged));
}

LogLine different(const QString &first, const QString &second)
{
    return warning("One file under two names would get different texts: \"" + first + "\" \""
                   + second + '"');
}

using Element = Base::BaseClassSharedPointer;

const QJsonObject treeNode{{"type", "treenode"}};

/// The library asks an element of a class that it does not know for its content.
class OwnNode : public ConfigurationAndProcessDataTreeNode
{
public:
    using ConfigurationAndProcessDataTreeNode::ConfigurationAndProcessDataTreeNode;
};

class NodeWithGap : public ConfigurationAndProcessDataTreeNode
{
public:
    NodeWithGap() : ConfigurationAndProcessDataTreeNode(treeNode, nullptr)
    {
        m_childs.insert("a", {});
    }
};

Element leafWithWrongValue()
{
    const auto leaf = QSharedPointer<ConfigurationDataValue>::create(
        QJsonObject{{"type", "int32"}, {"value", 1}}, nullptr);
    leaf->setPropertyNoSignalEmit("value", "no number");
    return leaf;
}

QString printed(const Element &element)
{
    QString text;
    QDebug(&text).nospace() << static_cast<const QObject *>(element.data());
    return text;
}

} // namespace

Q_DECLARE_METATYPE(ConfigurationAndProcessDataBase::BaseClassSharedPointer)

/// Links beside the configuration files to which they lead, in a directory "base/top".
class tst_FilesOfTwoNames : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();

    void bothNamesAreParsed();
    void changeUnderOneNameIsRefused_data();
    void changeUnderOneNameIsRefused();
    void nothingIsWrittenBeforeTheRefusal();
    void differenceBelowTwoDirectoriesIsRefused();
    void nameBelowWhatTheTreeHasNotIsNoDifference();
    void sameChangeUnderBothNamesIsWrittenOnce();
    void nextWriteSucceedsAsWell();
    void messagesOfTheTextComeOnce_data();
    void messagesOfTheTextComeOnce();
    void namesOfOneSubtreeAreOne();
    void linkToAFileOutsideStaysALink();
    void linkToALinkStaysALink();

private:
    QScopedPointer<WorkingDirectory> m_directory;
};

void tst_FilesOfTwoNames::init()
{
    m_directory.reset(new WorkingDirectory);
    writeFile("base/top/folder.json", "{}");
    writeFile("base/top/m.config.json", stampable("former"));
    ConfigurationModificationHandler::getInstance().clearModifiedInstances();
}

void tst_FilesOfTwoNames::cleanup()
{
    m_directory.reset();
}

void tst_FilesOfTwoNames::bothNamesAreParsed()
{
    makeLink("base/top/z.config.json", "m.config.json");
    LogCapture log;

    const auto root = parsedTop();

    QCOMPARE(log.take(), QList<LogLine>());
    QCOMPARE(childNames(root), (QStringList{"m", "z"}));
    QCOMPARE(valueAt(root, "z/v"), QString("former"));
}

void tst_FilesOfTwoNames::changeUnderOneNameIsRefused_data()
{
    QTest::addColumn<QString>("link");
    QTest::addColumn<QString>("changed");

    QTest::newRow("file, link behind it") << "z"
                                          << "m/v";
    QTest::newRow("link behind the file") << "z"
                                          << "z/v";
    QTest::newRow("file, link before it") << "a"
                                          << "m/v";
    QTest::newRow("link before the file") << "a"
                                          << "a/v";
}

void tst_FilesOfTwoNames::changeUnderOneNameIsRefused()
{
    QFETCH(QString, link);
    QFETCH(QString, changed);
    const QString linkPath = "base/top/" + link + ".config.json";
    makeLink(linkPath, "m.config.json");
    const auto root = parsedTop();
    setValue(root, changed, "new");
    const auto states = statesBelow(".");
    LogCapture log;

    QVERIFY(!write(root));

    const QString file = "base/top/m.config.json";
    COMPARE_LOG(log, link == "a" ? different(linkPath, file) : different(file, linkPath),
                warning("Cannot frame folder \"" + QFileInfo("base/top").absoluteFilePath() + '"'));
    QVERIFY(statesBelow(".") == states);
    QCOMPARE(recordedInstances(), QStringList());
}

void tst_FilesOfTwoNames::nothingIsWrittenBeforeTheRefusal()
{
    writeFile("base/top/a.config.json", stampable("A"));
    makeLink("base/top/z.config.json", "m.config.json");
    const auto root = parsedTop();
    setValue(root, "a/v", "new");
    setValue(root, "m/v", "new");
    const auto states = statesBelow(".");
    LogCapture log;

    QVERIFY(!write(root));

    QVERIFY(statesBelow(".") == states);
}

void tst_FilesOfTwoNames::differenceBelowTwoDirectoriesIsRefused()
{
    writeFile("base/top/one/folder.json", "{}");
    makeLink("base/top/one/x.config.json", "../m.config.json");
    const auto root = parsedTop();
    setValue(root, "one/x/v", "new");
    LogCapture log;

    QVERIFY(!write(root));

    QCOMPARE(log.take().first(), different("base/top/m.config.json", "base/top/one/x.config.json"));
    QCOMPARE(readFile("base/top/m.config.json"), stampable("former"));
}

/// The write ends at the directory without a node, and not at the file below it.
void tst_FilesOfTwoNames::nameBelowWhatTheTreeHasNotIsNoDifference()
{
    const auto root = parsedTop();
    writeFile("base/top/later/folder.json", "{}");
    writeFile("base/top/later/still/folder.json", "{}");
    makeLink("base/top/later/still/x.config.json", "../../m.config.json");
    const auto states = statesBelow(".");
    LogCapture log;

    QVERIFY(!write(root));

    QVERIFY(!toText(log.take()).contains("under two names"));
    QVERIFY(statesBelow(".") == states);
}

void tst_FilesOfTwoNames::sameChangeUnderBothNamesIsWrittenOnce()
{
    makeLink("base/top/z.config.json", "m.config.json");
    const auto root = parsedTop();
    setValue(root, "m/v", "new");
    setValue(root, "z/v", "new");
    LogCapture log;

    QVERIFY(write(root));

    QCOMPARE(log.take(), QList<LogLine>());
    QVERIFY(QFileInfo("base/top/z.config.json").isSymLink());
    QCOMPARE(recordedInstances(), (QStringList{"module|object|top/m", "module|object|top/z"}));
    const QString date = root->getLeaf("m")->getProperty("lastModified").toString();
    QCOMPARE(readFile("base/top/m.config.json"), stamped("new", date));
    QCOMPARE(root->getLeaf("z")->getProperty("lastModified").toString(), date);
}

void tst_FilesOfTwoNames::nextWriteSucceedsAsWell()
{
    makeLink("base/top/z.config.json", "m.config.json");
    const auto root = parsedTop();
    LogCapture log;
    for (int time = 0; time < 3; ++time) {
        QVERIFY(write(root));
    }

    QVERIFY(write(parsedTop()));

    QCOMPARE(log.take(), QList<LogLine>());
}

void tst_FilesOfTwoNames::messagesOfTheTextComeOnce_data()
{
    QTest::addColumn<Element>("former");
    QTest::addColumn<Element>("other");
    QTest::addColumn<QStringList>("messages");

    const Element node = emptyNode();
    QTest::newRow("node without children")
        << node << Element(emptyNode()) << QStringList{"Node has no childs! " + printed(node)};
    const Element ownNode = QSharedPointer<OwnNode>::create(treeNode, nullptr);
    QTest::newRow("node of an application")
        << ownNode << Element(QSharedPointer<OwnNode>::create(treeNode, nullptr))
        << QStringList{"Node has no childs! " + printed(ownNode)};
    QTest::newRow("null child") << Element(QSharedPointer<NodeWithGap>::create())
                                << Element(QSharedPointer<NodeWithGap>::create())
                                << QStringList{"Key has no value!"};
    QTest::newRow("no properties")
        << Element(QSharedPointer<ConfigurationDataValue>::create(QJsonObject(), nullptr))
        << Element(QSharedPointer<ConfigurationDataValue>::create(QJsonObject(), nullptr))
        << QStringList{"No properties found in configuration value!"};
    QTest::newRow("value of a wrong type")
        << leafWithWrongValue() << leafWithWrongValue()
        << QStringList{"Wrong type, property can't set 2 QVariant(QString, \"no number\")"};
}

void tst_FilesOfTwoNames::messagesOfTheTextComeOnce()
{
    QFETCH(Element, former);
    QFETCH(Element, other);
    QFETCH(QStringList, messages);
    makeLink("base/top/z.config.json", "m.config.json");
    const auto root = parsedTop();
    root->getLeaf("m").dynamicCast<ConfigurationAndProcessDataTreeNode>()->addElement("x", former);
    root->getLeaf("z").dynamicCast<ConfigurationAndProcessDataTreeNode>()->addElement("x", other);
    LogCapture log;

    QVERIFY(write(root));

    QList<LogLine> expected;
    for (const QString &message : qAsConst(messages)) {
        expected.append(warning(message));
    }
    QCOMPARE(toText(log.take()), toText(expected));
}

void tst_FilesOfTwoNames::namesOfOneSubtreeAreOne()
{
    makeLink("base/top/m.1.config.json", "m.config.json");
    const auto root = parsedTop();
    LogCapture log;

    QVERIFY(write(root));

    QCOMPARE(log.take(), QList<LogLine>());
    QCOMPARE(recordedInstances(), QStringList{"module|object|top/m"});
    QCOMPARE(readFile("base/top/m.config.json"), stamped("former", recordedDate()));
}

void tst_FilesOfTwoNames::linkToAFileOutsideStaysALink()
{
    writeFile("outside/x", stampable("X"));
    makeLink("base/top/a.config.json", "../../outside/x");
    const auto root = parsedTop();
    LogCapture log;

    QVERIFY(write(root));

    QVERIFY(QFileInfo("base/top/a.config.json").isSymLink());
    QCOMPARE(readFile("outside/x"),
             stamped("X", root->getLeaf("a")->getProperty("lastModified").toString()));
}

void tst_FilesOfTwoNames::linkToALinkStaysALink()
{
    writeFile("outside/x", stampable("X"));
    makeLink("outside/middle", "x");
    makeLink("base/top/a.config.json", "../../outside/middle");
    const auto root = parsedTop();
    LogCapture log;

    QVERIFY(write(root));

    QVERIFY(QFileInfo("base/top/a.config.json").isSymLink());
    QVERIFY(QFileInfo("outside/middle").isSymLink());
    QCOMPARE(readFile("outside/x"),
             stamped("X", root->getLeaf("a")->getProperty("lastModified").toString()));
}

QTEST_GUILESS_MAIN(tst_FilesOfTwoNames)

#include "tst_FilesOfTwoNames.moc"
