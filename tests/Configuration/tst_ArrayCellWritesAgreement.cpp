#include "Companion/SelectorUrlArrayIndex.h"
#include "Configuration/ConfigurationAndProcessDataParser.h"
#include "Configuration/ConfigurationAndProcessDataTools.h"
#include "Configuration/ConfigurationArray2dDataTypeWrapper.h"
#include "Configuration/ConfigurationDataValue.h"
#include "RandomConfiguration.h"
#include "support/LogCapture.h"

#include <QtTest>

#include <limits>

using Base = ConfigurationAndProcessDataBase;
using Root = Base::BaseClassSharedPointer;
using Tools = ConfigurationAndProcessDataTools;

namespace {

/// Writes the whole table, as plainly as it can be put.
Base::SetValueStatus writeLiterally(const QString &url, const Root &root, const QVariant &value)
{
    Array2dDataTypeWrapper table{QVariantList(), QVariantList()};
    QString urlWithoutIndex;
    SelectorUrlArrayIndex index;
    if (!Tools::fetchArrayHandleWithIndexes(url, root, table, urlWithoutIndex, index)
        || !table.setCellValue(index.getRowIndex(), index.getColumnIndex(), value)) {
        return Base::SetValueTargetMissing;
    }
    return root->getLeafConfigurationData(urlWithoutIndex)
        ->setValue(QVariant(table.getArrayValueContent()));
}

/// From a table that was loaded whole.
QVariant readLiterally(const QString &url, const Root &root)
{
    Array2dDataTypeWrapper table{QVariantList(), QVariantList()};
    QString urlWithoutIndex;
    SelectorUrlArrayIndex index;
    return Tools::fetchArrayHandleWithIndexes(url, root, table, urlWithoutIndex, index)
               ? table.getCellValue(index.getRowIndex(), index.getColumnIndex())
               : QVariant();
}

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

QVariant information(RandomConfiguration &random)
{
    return random.once(10) ? random.value()
                           : QVariant(QVariantList{QVariantList(), QVariantList()});
}

} // namespace

/// Cells that are read and written in place against tables that are loaded and written whole.
class tst_ArrayCellWritesAgreement : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void statusSignalsMessagesAndTablesAgree();
    void cellsAndMessagesAgree();
    void aTableThatWasReadBeforeStaysAsItWas();
};

void tst_ArrayCellWritesAgreement::statusSignalsMessagesAndTablesAgree()
{
    const quint32 seed = QRandomGenerator::global()->generate();
    qInfo() << "seed" << seed;
    RandomConfiguration random(seed);
    LogCapture log;
    for (int i = 0; i < 500; ++i) {
        const QVariant content = random.once(4) ? QVariant(random.cells()) : plainTable(random);
        const QVariant columns = information(random);
        const QString type = random.once(20) ? "int32" : "array";
        Table written(content, columns, type);
        Table expected(content, columns, type);
        for (int j = 0; j < 10; ++j) {
            const QString url =
                QStringLiteral("table#%1,%2").arg(random.below(5)).arg(random.below(4));
            const QVariant value = cellValue(random);
            log.take();
            const Base::SetValueStatus expectedStatus = writeLiterally(url, expected.root(), value);
            const QString expectedLog = toText(log.take());

            const auto status = Tools::setConfigValueWithArrayIndexUrl(url, written.root(), value);

            QCOMPARE(status, expectedStatus);
            QCOMPARE(toText(log.take()), expectedLog);
            QCOMPARE(written.content(), expected.content());
            QCOMPARE(written.takeSignals(), expected.takeSignals());
        }
    }
}

void tst_ArrayCellWritesAgreement::cellsAndMessagesAgree()
{
    const quint32 seed = QRandomGenerator::global()->generate();
    qInfo() << "seed" << seed;
    RandomConfiguration random(seed);
    LogCapture log;
    for (int i = 0; i < 1000; ++i) {
        const QVariantList flat{random.value(), cellValue(random), QVariantList{cellValue(random)}};
        const QVariant content = random.once(3)   ? QVariant(random.cells())
                                 : random.once(2) ? QVariant(flat)
                                 : random.once(5) ? random.value()
                                                  : plainTable(random);
        const Table table(content, information(random), random.once(20) ? "int32" : "array");
        for (int j = 0; j < 10; ++j) {
            const QString url =
                QStringLiteral("table#%1,%2").arg(random.below(5)).arg(random.below(4));
            log.take();
            const QVariant expected = readLiterally(url, table.root());
            const QString expectedLog = toText(log.take());

            const QVariant cell = Tools::extractConfigValueWithArrayIndexUrl(url, table.root());

            QCOMPARE(toText(log.take()), expectedLog);
            QCOMPARE(describe(cell), describe(expected));
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
