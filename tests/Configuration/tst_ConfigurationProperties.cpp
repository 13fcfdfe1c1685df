#include "Configuration/ConfigurationAndProcessDataParser.h"
#include "Configuration/ConfigurationAndProcessDataTools.h"
#include "Configuration/ConfigurationArray2dDataTypeWrapper.h"
#include "Configuration/ConfigurationDataValue.h"
#include "RandomConfiguration.h"
#include "support/LogCapture.h"

#include <algorithm>

namespace {

using Base = ConfigurationAndProcessDataBase;
using Root = Base::BaseClassSharedPointer;
using Tools = ConfigurationAndProcessDataTools;

constexpr int writeCases = 6000;
constexpr int roundTripCases = 2000;
constexpr int tableCases = 4000;
constexpr int brokenTextCases = 2000;
constexpr int casesOfOneTree = 20;

Root parse(const QJsonObject &description)
{
    // Through the text, in which alone large numbers get the digits that they keep.
    const QByteArray text = QJsonDocument(description).toJson(QJsonDocument::Compact);
    return ConfigurationAndProcessDataParser().parseFromByteArray(text, "config.json");
}

QByteArray frame(const Root &root)
{
    QByteArray text;
    ConfigurationAndProcessDataParser().frameToByteArray(root, text, QJsonDocument::Compact);
    return text;
}

bool isMap(const QVariant &value)
{
    return value.userType() == QMetaType::QVariantMap
           || value.userType() == QMetaType::QVariantHash;
}

/// Equal in type and in being null as well; both kinds of map count as one.
bool isSame(const QVariant &left, const QVariant &right)
{
    if (isMap(left) && isMap(right)) {
        const QVariantHash leftMap = left.toHash();
        const QVariantHash rightMap = right.toHash();
        return leftMap.size() == rightMap.size()
               && std::all_of(leftMap.keyBegin(), leftMap.keyEnd(), [&](const QString &key) {
                      return rightMap.contains(key)
                             && isSame(leftMap.value(key), rightMap.value(key));
                  });
    }
    if (left.userType() != right.userType() || left.isNull() != right.isNull()) {
        return false;
    }
    if (left.userType() == QMetaType::QVariantList) {
        const QVariantList leftList = left.toList();
        const QVariantList rightList = right.toList();
        return std::equal(leftList.cbegin(), leftList.cend(), rightList.cbegin(), rightList.cend(),
                          isSame);
    }
    return left == right;
}

/// Nothing if both trees are the same, else the place where they differ first.
QString findDifference(const Base &left, const Base &right, const QString &url = {})
{
    if (left.metaObject() != right.metaObject()) {
        return url + " (class)";
    }
    const auto properties = const_cast<Base &>(left).getProperties();
    const auto others = const_cast<Base &>(right).getProperties();
    for (auto property = properties.cbegin(); property != properties.cend(); ++property) {
        if (!others.contains(property.key())
            || !isSame(property.value(), others.value(property.key()))) {
            QString difference;
            QDebug(&difference) << url << property.key() << property.value() << "or"
                                << others.value(property.key());
            return difference;
        }
    }
    if (properties.size() != others.size()
        || left.getNumberOfChilds() != right.getNumberOfChilds()) {
        return url + " (number)";
    }
    for (auto child = left.getChildMap().cbegin(); child != left.getChildMap().cend(); ++child) {
        const Root other = right.getChildMap().value(child.key());
        const QString place = url + '/' + child.key();
        const QString difference = other.isNull() ? place : findDifference(**child, *other, place);
        if (!difference.isEmpty()) {
            return difference;
        }
    }
    return {};
}

void collect(const Root &element, QList<QWeakPointer<Base>> &elements)
{
    elements.append(element);
    for (const Root &child : element->getChildMap()) {
        collect(child, elements);
    }
}

/// One write by URL in one of its three forms, and how it is read back.
struct RandomWrite
{
    enum Form { Value, ValueNoSignalEmit, Property };

    RandomWrite(RandomConfiguration &random, const Root &root)
        : form(static_cast<Form>(random.below(3)))
        , url(random.url(root))
        , path(random.propertyPath(root->getLeaf(url)))
        , value(random.value())
    {
        // A list in the first cell would make the table a deeper array.
        if (form == Value && url.contains('#')) {
            value = random.value(0);
        }
    }

    Base::SetValueStatus write(const Root &root) const
    {
        switch (form) {
        case Value: return Tools::setConfigValueWithStatus(url, root, value);
        case ValueNoSignalEmit:
            return Tools::setConfigValueNoSignalEmitWithStatus(url, root, value);
        case Property: break;
        }
        return Tools::setPropertyWithStatus(url, path, root, value);
    }
    QVariant readBack(const Root &root) const
    {
        return form == Property ? Tools::extractProperty(url, path, root)
                                : Tools::extractConfigValue(url, root);
    }

    Form form;
    QString url;
    QString path;
    QVariant value;
};

/// All that a table shows of itself.
struct TableState
{
    explicit TableState(const Array2dDataTypeWrapper &table)
        : content(table.getArrayValueContent())
        , rows(table.getArrayInfo(0))
        , columns(table.getArrayInfo(1))
        , type(table.getArrayType())
    {
    }

    bool operator==(const TableState &other) const
    {
        return isSame(content, other.content) && isSame(rows, other.rows)
               && isSame(columns, other.columns) && type == other.type;
    }

    QVariantList content;
    QVariantList rows;
    QVariantList columns;
    QVector<unsigned int> type;
};

/// Whether each row has a cell in each measured column.
bool isComplete(const Array2dDataTypeWrapper &table)
{
    const QVariantList rows = table.getArrayValueContent();
    return std::all_of(rows.cbegin(), rows.cend(), [&table](const QVariant &row) {
        return row.toList().size() >= static_cast<int>(table.getNumberOfColumns());
    });
}

Array2dDataTypeWrapper makeTable(RandomConfiguration &random)
{
    QVariantList columns;
    for (int i = random.below(4); i > 0; --i) {
        columns.append(random.columnDescription());
    }
    QVariantList info{QVariant(QVariantList()), QVariant(columns)};
    if (random.once(6)) {
        info = random.cells();
    }
    if (random.once(2)) {
        return Array2dDataTypeWrapper(random.cells(), info);
    }
    Array2dDataTypeWrapper table({}, {}, 0, static_cast<std::size_t>(random.below(4)));
    if (!random.once(8)) {
        table.reset(random.cells(), info);
    }
    return table;
}

/// A number that leads to a place, as a rule.
std::size_t somePlace(RandomConfiguration &random)
{
    // On 32 bits the second is 0.
    static const QVector<std::size_t> far{std::size_t(-1), std::size_t(quint64(1) << 32),
                                          4294967295U, 7};
    return random.once(12) ? random.pick(far) : static_cast<std::size_t>(random.below(4));
}

/// Asks everything that can be asked. A place that is not there is no reason to stop.
void readEverything(RandomConfiguration &random, Array2dDataTypeWrapper &table)
{
    const std::size_t row = somePlace(random);
    const std::size_t column = somePlace(random);
    table.getRowValues(row, column, somePlace(random));
    table.getColumnDataType(column);
    table.getColumnUnitTypes();
    table.isCellValueNoInput(row, column);
    table.getInfoAllColumns(random.text());
    table.getArrayInfo(static_cast<unsigned int>(row), random.text());
    table.getInnerArrayValues({static_cast<unsigned int>(row), static_cast<unsigned int>(column)});
    table.getCellValue(QVector<unsigned int>{static_cast<unsigned int>(row)});
    table.getCellValue(row, column);
    if (isComplete(table)) {
        table.getColumnValues(column);
    }
}

} // namespace

/// Whatever is written where: what arrived reads back, what did not arrive left no trace, and
/// nothing stops the process. Set TESSEL_TEST_SEED to the number of a failed run to have the same
/// cases again.
class tst_ConfigurationProperties : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();

    void whatWasWrittenReadsBackAndNothingElseLeavesATrace();
    void refusalOfThePatternIsThatOfTheCheck();
    void parsedFrameIsTheTree();
    void tablesKeepWhatTheyRefuseToChange();
    void brokenDescriptionsStopNothing();
    void releasedTreesAreGone();

private:
    QByteArray place(int number, const QString &what = {}) const
    {
        return QStringLiteral("TESSEL_TEST_SEED=%1, case %2: %3")
            .arg(m_seed)
            .arg(number)
            .arg(what)
            .toUtf8();
    }

    quint32 m_seed = 0;
};

void tst_ConfigurationProperties::initTestCase()
{
    bool isGiven = false;
    m_seed = qEnvironmentVariable("TESSEL_TEST_SEED").toUInt(&isGiven);
    if (!isGiven) {
        m_seed = QRandomGenerator::global()->generate();
    }
    qInfo() << "TESSEL_TEST_SEED" << m_seed;
}

void tst_ConfigurationProperties::whatWasWrittenReadsBackAndNothingElseLeavesATrace()
{
    RandomConfiguration random(m_seed);
    QMap<int, int> countByStatus;
    Root root;
    int signalCount = 0;
    LogCapture log;
    for (int i = 0; i < writeCases; ++i) {
        if (i % casesOfOneTree == 0) {
            root = parse(random.description());
            connect(root.data(), QOverload<>::of(&Base::propertyChanged), this,
                    [&signalCount] { ++signalCount; });
        }
        const RandomWrite step(random, root);
        const QByteArray before = frame(root);
        signalCount = 0;

        const auto status = step.write(root);

        ++countByStatus[status];
        const QByteArray where = place(i,
                                       QStringLiteral("form %1, status %2, url \"%3\", path \"%4\"")
                                           .arg(step.form)
                                           .arg(status)
                                           .arg(step.url, step.path));
        const bool sendsSignals = status == Base::SetValueChanged
                                  && step.form != RandomWrite::ValueNoSignalEmit;
        QVERIFY2(signalCount == (sendsSignals ? 1 : 0), where);
        if (status == Base::SetValueChanged) {
            QVERIFY2(isSame(step.readBack(root), step.value), where);
        } else {
            QVERIFY2(frame(root) == before, where);
        }
        if (status == Base::SetValueUnchanged) {
            QVERIFY2(step.readBack(root) == step.value, where);
        }
        log.take();
    }
    for (const int status : {0, 1, 2, 3, 4}) {
        QVERIFY2(countByStatus.value(status) >= writeCases / 200,
                 place(countByStatus.value(status),
                       "cases only of status " + QByteArray::number(status)));
    }
    QCOMPARE(countByStatus.size(), 5);
}

void tst_ConfigurationProperties::refusalOfThePatternIsThatOfTheCheck()
{
    RandomConfiguration random(m_seed + 1);
    LogCapture log;
    for (int i = 0; i < writeCases / 3; ++i) {
        const Root root = parse(random.description());
        const QString url = random.leafUrl(root);
        const QVariant value = random.value();
        const auto leaf = root->getLeafConfigurationData(url);
        const bool mayBeWritten = Tools::checkRegularExpression(leaf, value);
        log.take();

        const auto status = Tools::setConfigValueNoSignalEmitWithStatus(url, root, value);

        const bool isRefused = status == Base::SetValueRegularExpressionMismatch;
        QVERIFY2(isRefused != mayBeWritten, place(i, url));
        QVERIFY2((status == Base::SetValueTargetMissing) == leaf.isNull(), place(i, url));
        QVERIFY2(log.take().size() == (isRefused ? 1 : 0), place(i, url));
    }
}

void tst_ConfigurationProperties::parsedFrameIsTheTree()
{
    RandomConfiguration random(m_seed + 2);
    Root root;
    LogCapture log;
    for (int i = 0; i < roundTripCases; ++i) {
        if (i % casesOfOneTree == 0) {
            root = parse(random.description());
        }
        const QString url = random.leafUrl(root);
        const QString type = url.isEmpty() ? QString() : Tools::getDataType(url, root);
        Tools::setConfigValue(url, root, random.heldValue(type));

        const Root parsed = ConfigurationAndProcessDataParser().parseFromByteArray(frame(root),
                                                                                   "config.json");

        QVERIFY2(!parsed.isNull(), place(i, url));
        const QString difference = findDifference(*root, *parsed);
        QVERIFY2(difference.isEmpty(), place(i, difference));
        log.take();
    }
}

void tst_ConfigurationProperties::tablesKeepWhatTheyRefuseToChange()
{
    RandomConfiguration random(m_seed + 3);
    QMap<bool, int> countByResult;
    LogCapture log;
    for (int i = 0; i < tableCases; ++i) {
        Array2dDataTypeWrapper table = makeTable(random);
        const TableState before(table);
        const std::size_t row = somePlace(random);
        const std::size_t column = somePlace(random);
        const QVariant value = random.value(1);
        bool isChanged = false;
        switch (random.below(5)) {
        case 0:
            isChanged = table.setCellValue(row, column, value);
            QVERIFY2(!isChanged || isSame(table.getCellValue(row, column), value), place(i));
            break;
        case 1: {
            const QVariantList values = random.cells().value(0).toList();
            isChanged = table.setRowValues(values, row);
            QVERIFY2(!isChanged || isSame(table.getRowValues(row), values), place(i));
            break;
        }
        case 2:
            isChanged = table.addNewRow();
            QVERIFY2(table.getNumberOfRows() == before.type.value(0) + (isChanged ? 1 : 0),
                     place(i));
            QVERIFY2(!isChanged || table.getNumberOfRows() <= table.getMaxNumberOfRows() + 1,
                     place(i));
            QVERIFY2(!isChanged
                         || isSame(table.getArrayValueContent().last(),
                                   table.getInfoAllColumns("value")),
                     place(i));
            break;
        case 3:
            isChanged = table.setColumnUnitType(column, "unit");
            QVERIFY2(!isChanged
                         || table.getColumnUnitTypes().value(static_cast<int>(column)) == "unit",
                     place(i));
            break;
        default:
            isChanged = table.setRowValues({value, value}, row, column, 2);
            QVERIFY2(!isChanged
                         || isSame(table.getRowValues(row, column, 2), QVariantList{value, value}),
                     place(i));
        }
        QVERIFY2(isChanged || TableState(table) == before, place(i));
        ++countByResult[isChanged];

        const TableState after(table);
        readEverything(random, table);
        QVERIFY2(TableState(table) == after, place(i));
        log.take();
    }
    QVERIFY2(countByResult.value(true) > tableCases / 20, place(tableCases, "too few changes"));
}

void tst_ConfigurationProperties::brokenDescriptionsStopNothing()
{
    RandomConfiguration random(m_seed + 4);
    const ConfigurationAndProcessDataParser parser;
    QByteArray text;
    int parsedCount = 0;
    LogCapture log;
    for (int i = 0; i < brokenTextCases; ++i) {
        if (i % casesOfOneTree == 0) {
            text = QJsonDocument(random.description()).toJson(QJsonDocument::Compact);
        }
        QByteArray broken = text;
        for (int j = random.below(4); j >= 0; --j) {
            static const QByteArray letters = "\"{}[],:0-9.etnul\\\xC3\x01 value";
            broken[random.below(broken.size())] = letters.at(random.below(letters.size()));
        }
        const Root root = parser.parseFromByteArray(broken, "config.json");
        if (!root.isNull()) {
            ++parsedCount;
            RandomWrite(random, root).write(root);
            Array2dDataTypeWrapper table(root, "table");
            readEverything(random, table);
            table.addNewRow();
            table.setArrayContentTotal();
            QVERIFY2(QJsonDocument::fromJson(frame(root)).isObject(), place(i));
        }
        log.take();
    }
    QVERIFY2(parsedCount > brokenTextCases / 20, place(brokenTextCases, "too few trees"));
}

void tst_ConfigurationProperties::releasedTreesAreGone()
{
    RandomConfiguration random(m_seed + 5);
    LogCapture log;
    for (int i = 0; i < 200; ++i) {
        QList<QWeakPointer<Base>> elements;
        {
            const Root root = parse(random.description());
            collect(root, elements);
            Array2dDataTypeWrapper table(root, "table");
            for (int j = 0; j < casesOfOneTree; ++j) {
                RandomWrite(random, root).write(root);
            }
            table.addNewRow();
            table.setArrayContentTotal();
        }
        QVERIFY2(std::all_of(elements.cbegin(), elements.cend(),
                             [](const QWeakPointer<Base> &element) { return element.isNull(); }),
                 place(i));
        log.take();
    }
}

QTEST_GUILESS_MAIN(tst_ConfigurationProperties)

#include "tst_ConfigurationProperties.moc"
