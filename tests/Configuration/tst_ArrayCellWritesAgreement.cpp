#include "Configuration/ConfigurationAndProcessDataParser.h"
#include "Configuration/ConfigurationAndProcessDataTools.h"
#include "Configuration/ConfigurationDataValue.h"
#include "LiteralTable.h"
#include "RandomConfiguration.h"
#include "support/LogCapture.h"

#include <QtTest>

#include <limits>

using Base = ConfigurationAndProcessDataBase;
using Root = Base::BaseClassSharedPointer;
using Tools = ConfigurationAndProcessDataTools;

namespace {

/// With the type of each value, which a comparison of variants does not tell.
QString describe(const QVariant &value)
{
    if (value.userType() != QMetaType::QVariantList) {
        QString text;
        QDebug(&text) << value << value.isNull();
        return text;
    }
    QString text;
    for (const QVariant &entry : value.toList()) {
        text += describe(entry) + ';';
    }
    return '[' + text + ']';
}

/// A tree with one table, and all that goes out of it.
class Table
{
public:
    Table(const QVariant &content, const QVariant &information, const QString &type)
        : m_root(ConfigurationAndProcessDataParser().createNode(
            {{"type", "treenode"},
             {"value", QJsonObject{{"table", QJsonObject{{"type", type}, {"value", 0}}}}}},
            "config.json"))
        , m_leaf(m_root->getLeafConfigurationData("table"))
    {
        m_leaf->setPropertyNoSignalEmit("value", content);
        if (information.isValid()) {
            m_leaf->addProperty("arrayInformation", information);
        }
        const auto noteProperty = [this](const QString &key, const QVariant &value) {
            note("property " + key, value);
        };
        QObject::connect(m_leaf.data(),
                         QOverload<const QString &, const QVariant &>::of(&Base::propertyChanged),
                         noteProperty);
        QObject::connect(m_leaf.data(), QOverload<>::of(&Base::propertyChanged),
                         [this] { note("property", {}); });
        QObject::connect(m_leaf.data(), &ConfigurationDataValue::valueChanged,
                         [this](const QVariant &value) { note("value", value); });
        QObject::connect(m_root.data(), QOverload<>::of(&Base::propertyChanged),
                         [this] { note("root", {}); });
    }

    const Root &root() const { return m_root; }
    QString content() const { return describe(m_leaf->getValue()); }

    /// What went out since the last call, as it is now: nothing may change it any more.
    QStringList takeSignals()
    {
        QStringList lines;
        for (const auto &signal : std::as_const(m_signals)) {
            lines.append(signal.first + ' ' + describe(signal.second));
        }
        m_signals.clear();
        return lines;
    }

private:
    void note(const QString &name, const QVariant &value)
    {
        // A receiver finds the table written.
        m_signals.append({name + ' ' + content(), value});
    }

    Root m_root;
    QSharedPointer<ConfigurationDataValue> m_leaf;
    QList<QPair<QString, QVariant>> m_signals;
};

QVariant cellValue(RandomConfiguration &random)
{
    switch (random.below(6)) {
    case 0: return std::numeric_limits<double>::quiet_NaN();
    case 1: return random.value();
    case 2: return {};
    case 3: return random.once(2) ? QVariant(QMetaType::Int, nullptr) : QVariant(QString());
    default: return random.once(2) ? QVariant(random.below(3)) : QVariant(random.below(3) * 1.0);
    }
}

QVariantList plainTable(RandomConfiguration &random)
{
    QVariantList rows;
    for (int row = random.below(4); row >= 0; --row) {
        rows.append(QVariant(QVariantList{cellValue(random), random.below(3), random.below(3)}));
    }
    return rows;
}

/// Leads to a cell as a rule.
QString cellUrl(RandomConfiguration &random)
{
    static const QStringList others{"table", "table#4294967295,0", "table#0,4294967295", "none#0,0",
                                    "table#0"};
    return random.once(15)
               ? random.pick(others)
               : QStringLiteral("table#%1,%2").arg(random.below(5)).arg(random.below(4));
}

QVariant information(RandomConfiguration &random)
{
    return random.once(10) ? random.value()
                           : QVariant(QVariantList{QVariantList(), QVariantList()});
}

} // namespace

/// Cells that are read and written in place against tables that are read and written whole. Set
/// TESSEL_TEST_SEED to the number of a failed run to have the same cases again.
class tst_ArrayCellWritesAgreement : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();

    void cellsThatAreReadAgree();
    void statusSignalsMessagesAndTablesAgree();
    void aTableThatWasReadBeforeStaysAsItWas();

private:
    quint32 m_seed = 0;
};

void tst_ArrayCellWritesAgreement::initTestCase()
{
    bool isGiven = false;
    m_seed = qEnvironmentVariable("TESSEL_TEST_SEED").toUInt(&isGiven);
    if (!isGiven) {
        m_seed = QRandomGenerator::global()->generate();
    }
    qInfo() << "TESSEL_TEST_SEED" << m_seed;
}

void tst_ArrayCellWritesAgreement::cellsThatAreReadAgree()
{
    RandomConfiguration random(m_seed + 1);
    LogCapture log;
    int found = 0;
    for (int i = 0; i < 500; ++i) {
        const QVariantList flat{random.value(), cellValue(random), QVariantList{cellValue(random)}};
        const QVariant content = random.once(20)  ? random.value()
                                 : random.once(3) ? QVariant(random.cells())
                                 : random.once(2) ? QVariant(flat)
                                                  : plainTable(random);
        const Table table(content, information(random), random.once(20) ? "int32" : "array");
        for (int j = 0; j < 10; ++j) {
            const QString url = cellUrl(random);
            const QString expectedCell = describe(LiteralTable::extractCell(url, table.root()));
            const QString expected = describe(LiteralTable::extractConfigValue(url, table.root()));
            const QString expectedLog = toText(log.take());

            const QVariant cell = Tools::extractConfigValueWithArrayIndexUrl(url, table.root());
            const QVariant value = Tools::extractConfigValue(url, table.root());

            QCOMPARE(describe(cell), expectedCell);
            QCOMPARE(describe(value), expected);
            QCOMPARE(toText(log.take()), expectedLog);
            found += cell.isValid() ? 1 : 0;
        }
    }
    QVERIFY(found > 500);
}

void tst_ArrayCellWritesAgreement::statusSignalsMessagesAndTablesAgree()
{
    RandomConfiguration random(m_seed);
    LogCapture log;
    for (int i = 0; i < 500; ++i) {
        const QVariant content = random.once(4) ? QVariant(random.cells()) : plainTable(random);
        const QVariant columns = information(random);
        const QString type = random.once(20) ? "int32" : "array";
        Table written(content, columns, type);
        Table expected(content, columns, type);
        for (int j = 0; j < 10; ++j) {
            const QString url = cellUrl(random);
            const QVariant value = cellValue(random);
            log.take();
            const Base::SetValueStatus expectedStatus = LiteralTable::setCell(url, expected.root(),
                                                                              value);
            const QString expectedLog = toText(log.take());

            const auto status = Tools::setConfigValueWithArrayIndexUrl(url, written.root(), value);

            QCOMPARE(status, expectedStatus);
            QCOMPARE(toText(log.take()), expectedLog);
            QCOMPARE(written.content(), expected.content());
            QCOMPARE(written.takeSignals(), expected.takeSignals());
        }
    }
}

void tst_ArrayCellWritesAgreement::aTableThatWasReadBeforeStaysAsItWas()
{
    const QVariantList content{QVariantList{1, 2}, QVariantList{3, 4}};
    const Table table(content, QVariantList{QVariantList(), QVariantList()}, "array");
    const QVariant before = Tools::extractConfigValue("table", table.root());
    const auto properties = table.root()->getLeaf("table")->getProperties();

    QVERIFY(Tools::setConfigValue("table#1,0", table.root(), 9));

    QCOMPARE(before, QVariant(content));
    QCOMPARE(properties.value("value"), QVariant(content));
    QCOMPARE(Tools::extractConfigValue("table", table.root()),
             QVariant(QVariantList{QVariantList{1, 2}, QVariantList{9, 4}}));
}

QTEST_GUILESS_MAIN(tst_ArrayCellWritesAgreement)

#include "tst_ArrayCellWritesAgreement.moc"
