#include "Configuration/ConfigurationAndProcessDataParser.h"
#include "Configuration/ConfigurationDataValue.h"
#include "Factories/Factory.h"
#include "ProcessData/Linux/ProcessDataValue.h"
#include "support/LogCapture.h"

#include <QLibrary>

using Element = ConfigurationAndProcessDataBase::BaseClassSharedPointer;
using VEXOFactories::LeafFactory;

namespace {

/// A leaf class of an application.
class Recipe : public ConfigurationDataValue
{
public:
    using ConfigurationDataValue::ConfigurationDataValue;

    QVariant getProperty(const QString &key) const override
    {
        return key == QLatin1String("class") ? QVariant("recipe")
                                             : ConfigurationDataValue::getProperty(key);
    }
};

template <class Leaf>
void registerAs(const QString &postfix)
{
    LeafFactory::instance().registerCreator(postfix,
                                            std::make_unique<LeafFactory::Creator<Leaf>>());
}

/// The leaf of a description that is parsed under @p postfix; null if it was not made.
Element parsedLeaf(const QString &postfix)
{
    const auto root = ConfigurationAndProcessDataParser().parseFromJson(
        QString(R"({"type": "treenode", "value": {"a": {"type": "int32", "value": 7}}})"), postfix);
    return root.isNull() ? root : root->getLeaf(QString("a"));
}

/// Before anything in main(), as an application registers its classes.
const bool isRegistered = [] {
    registerAs<Recipe>("early.json");
    return true;
}();

} // namespace

class tst_LeafRegistration : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void libraryKnowsItsOwnPostfixes();
    void classThatAProgramRegistersComesFromTheParser();
    void classThatIsRegisteredWithTheStaticObjectsComesFromTheParser();
    void classOfAPluginComesFromTheParser();
    void pluginFindsWhatTheProgramRegistered();
    void otherPostfixesStayUnknown();
};

void tst_LeafRegistration::libraryKnowsItsOwnPostfixes()
{
    QVERIFY(LeafFactory::instance().findCreator("config.json") != nullptr);
    QVERIFY(LeafFactory::instance().findCreator("process.json") != nullptr);
    QVERIFY(!parsedLeaf("config.json").dynamicCast<ConfigurationDataValue>().isNull());
    QVERIFY(!parsedLeaf("process.json").dynamicCast<ProcessDataValue>().isNull());
}

void tst_LeafRegistration::classThatAProgramRegistersComesFromTheParser()
{
    registerAs<Recipe>("recipe.json");

    const Element leaf = parsedLeaf("recipe.json");

    QVERIFY(!leaf.dynamicCast<Recipe>().isNull());
    QCOMPARE(leaf->getProperty("class"), QVariant("recipe"));
    QCOMPARE(leaf->getProperty("value"), QVariant(7));
}

void tst_LeafRegistration::classThatIsRegisteredWithTheStaticObjectsComesFromTheParser()
{
    QVERIFY(isRegistered);
    QVERIFY(!parsedLeaf("early.json").dynamicCast<Recipe>().isNull());
}

void tst_LeafRegistration::classOfAPluginComesFromTheParser()
{
    QLibrary plugin(LEAF_PLUGIN);
    const auto registerLeaf = reinterpret_cast<void (*)(const char *)>(
        plugin.resolve("registerLeaf"));
    QVERIFY2(registerLeaf != nullptr, qPrintable(plugin.errorString()));

    registerLeaf("plugin.json");

    const Element leaf = parsedLeaf("plugin.json");
    QVERIFY(!leaf.isNull());
    QCOMPARE(leaf->getProperty("class"), QVariant("plugin"));
}

void tst_LeafRegistration::pluginFindsWhatTheProgramRegistered()
{
    registerAs<Recipe>("shared.json");
    QLibrary plugin(LEAF_PLUGIN);
    const auto isKnown = reinterpret_cast<bool (*)(const char *)>(plugin.resolve("isKnown"));
    QVERIFY2(isKnown != nullptr, qPrintable(plugin.errorString()));

    QVERIFY(isKnown("shared.json"));
    QVERIFY(isKnown("config.json"));
    QVERIFY(!isKnown("nobody.json"));
}

void tst_LeafRegistration::otherPostfixesStayUnknown()
{
    LogCapture log;

    QVERIFY(parsedLeaf("unknown.json").isNull());

    COMPARE_LOG(log, warning("wrong file postfix \"unknown.json\""),
                warning("object is invalid \"a\""));
}

QTEST_GUILESS_MAIN(tst_LeafRegistration)
#include "tst_LeafRegistration.moc"
