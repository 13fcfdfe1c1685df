#include "Validation/KeyRules_p.h"
#include "Validation/TableRules_p.h"
#include "Validation/ValuePattern_p.h"
#include "Validation/ValueRules_p.h"
#include "Validation/ValueShown_p.h"

#include <QSet>

#include <vector>

namespace {

using Key = DescribedKey;
using Kind = JsonText::Kind;
using Value = JsonText::Value;

int sizeOf(const Value &list)
{
    int size = 0;
    for (JsonText::Elements element(list); element.isValid(); element.next()) {
        ++size;
    }
    return size;
}

Value memberOf(const Value &object, Key key)
{
    return object.member(QLatin1String(textOf(key).toLatin1()));
}

void checkEntries(CheckedFile &file, const QString &url, const Value &list)
{
    QSet<QString> seen;
    for (JsonText::Elements entry(list); entry.isValid(); entry.next()) {
        const Value &value = entry.value();
        if (!value.isText()) {
            file.report(
                Rule::SelectorEntries, value, url,
                QStringLiteral("the entry is %1, and should be a text").arg(shown(file, value)));
            continue;
        }
        const QString text = value.toString();
        if (seen.contains(text)) {
            file.report(Rule::SelectorEntries, value, url,
                        QStringLiteral("%1 stands in the list before").arg(quoted(text)));
        }
        seen.insert(text);
    }
    if (sizeOf(list) == 0) {
        file.report(Rule::SelectorEntries, list, url, QStringLiteral("the list has no entry"));
    }
}

void checkIndex(CheckedFile &file, const QString &url, const Value &index, const Value &list)
{
    const int size = sizeOf(list);
    if (index.kind() == Kind::Integer && size > 0
        && (index.toInteger() < 0 || index.toInteger() >= size)) {
        file.report(Rule::SelectorValue, index, url,
                    QStringLiteral("%1 is no index of a list with %2 entries")
                        .arg(shown(file, index))
                        .arg(size));
    }
}

/// False if it is there and no list.
bool isSelectionList(CheckedFile &file, const QString &url, const Value &list)
{
    if (list.isArray()) {
        return true;
    }
    file.report(Rule::WrongType, list, url,
                QStringLiteral("'%1' is %2, and should be a list of texts")
                    .arg(textOf(Key::SelectionList), shown(file, list)));
    return false;
}

/// What the information of an array says of one column.
struct Column
{
    Value object;
    DescribedType type;
    QString typeName;
    Value selection;
    ValueRules::Limits limits;
    ValuePattern pattern;
};

/// An array that is looked over. It is one dimension, which counts as one column, or more.
class Table
{
public:
    explicit Table(const CheckedElement &array)
        : m_array(array)
        , m_file(array.file())
        , m_value(array.value(Key::Value))
    {
    }

    void check()
    {
        const bool hasRows = m_value.isValid() && checkValue();
        const bool hasColumns = checkInformation();
        if (hasRows && hasColumns) {
            checkColumnCount();
            checkCells();
        }
        if (hasRows) {
            checkRowLimits();
        }
    }

private:
    bool checkValue();
    bool checkRow(const Value &row, const Value &first);
    bool checkInformation();
    bool checkDimension(const Value &dimension, int index);
    void checkColumn(const Value &object);
    void checkColumnType(const Value &type, const Column &column) const;
    ValueRules::Limits checkColumnLimits(const Column &column) const;
    ValueRules::Held checkColumnLimit(const Column &column, Key key) const;
    ValuePattern checkColumnPattern(const Column &column) const;
    void checkColumnCount();
    void checkCells();
    void checkCell(const Value &cell, const Column &column);
    void checkRowLimits();
    void checkWrittenLimits(qint64 rows);

    void report(Rule rule, const Value &at, const QString &text) const
    {
        m_file.report(rule, at, m_array.url(), text);
    }
    bool isFlat() const
    {
        const JsonText::Elements first(m_value);
        return first.isValid() && !first.value().isArray();
    }

    const CheckedElement &m_array;
    CheckedFile &m_file;
    Value m_value;
    std::vector<Column> m_columns;
};

bool Table::checkValue()
{
    if (!m_value.isArray()) {
        report(Rule::ArrayShape, m_value,
               QStringLiteral("the value is %1, and should be a list").arg(shown(m_file, m_value)));
        return false;
    }
    const JsonText::Elements first(m_value);
    for (JsonText::Elements row(m_value); row.isValid(); row.next()) {
        if (!checkRow(row.value(), first.value())) {
            return false;
        }
    }
    return true;
}

bool Table::checkRow(const Value &row, const Value &first)
{
    if (row.isArray() != first.isArray()) {
        report(Rule::ArrayShape, row,
               QStringLiteral("%1 stands among rows of another kind").arg(shown(m_file, row)));
        return false;
    }
    if (row.isArray() && sizeOf(row) != sizeOf(first)) {
        report(Rule::ArrayShape, row,
               QStringLiteral("the row has %1 cells, and the first one has %2")
                   .arg(sizeOf(row))
                   .arg(sizeOf(first)));
        return false;
    }
    return true;
}

bool Table::checkInformation()
{
    const Value &information = m_array.value(Key::ArrayInformation);
    if (!information.isValid() || !information.isArray()) {
        m_array.report(
            Rule::ArrayInformation, Key::ArrayInformation,
            information.isValid()
                ? QStringLiteral("'%1' is %2, and should be a list of lists")
                      .arg(textOf(Key::ArrayInformation), shown(m_file, information))
                : QStringLiteral("the array has no '%1'").arg(textOf(Key::ArrayInformation)));
        return false;
    }
    int index = 0;
    for (JsonText::Elements entry(information); entry.isValid(); entry.next()) {
        if (!checkDimension(entry.value(), index++)) {
            return false;
        }
    }
    return index >= 2;
}

bool Table::checkDimension(const Value &dimension, int index)
{
    if (!dimension.isArray()) {
        report(Rule::ArrayInformation, dimension,
               QStringLiteral("a dimension is described by %1, and should be by a list")
                   .arg(shown(m_file, dimension)));
        return false;
    }
    for (JsonText::Elements entry(dimension); index == 1 && entry.isValid(); entry.next()) {
        if (!entry.value().isObject()) {
            report(Rule::ArrayColumns, entry.value(),
                   QStringLiteral("a column is described by %1, and should be by an object")
                       .arg(shown(m_file, entry.value())));
            return false;
        }
        checkColumn(entry.value());
    }
    return true;
}

void Table::checkColumn(const Value &object)
{
    KeyRules::checkColumn(m_file, object, m_array.url());
    Column column{object, {}, {}, memberOf(object, Key::SelectionList), {}, {}};
    const Value type = memberOf(object, Key::Type);
    if (type.isValid() && type.isText()) {
        column.typeName = type.toString();
        column.type = DescribedType::of(column.typeName);
        checkColumnType(type, column);
    }
    column.limits = checkColumnLimits(column);
    column.pattern = checkColumnPattern(column);
    if (column.selection.isValid()) {
        if (isSelectionList(m_file, m_array.url(), column.selection)) {
            checkEntries(m_file, m_array.url(), column.selection);
        } else {
            column.selection = {};
        }
    }
    const Value initial = memberOf(object, Key::Value);
    if (initial.isValid()) {
        checkCell(initial, column);
    } else if (m_array.flag(Key::ArrayHasDynamicRows)) {
        report(Rule::ColumnDefault, object,
               QStringLiteral("the column has no 'value' for a new row"));
    }
    m_columns.push_back(column);
}

void Table::checkColumnType(const Value &type, const Column &column) const
{
    if (!column.type.isKnown()) {
        report(Rule::UnknownType, type,
               QStringLiteral("unknown type %1 of a column%2")
                   .arg(quoted(column.typeName), hintOf(column.typeName, DescribedType::names())));
    } else if (!column.type.hasSlot()) {
        report(Rule::UnknownType, type,
               QStringLiteral("the cells of a column are no %1").arg(column.typeName));
    }
}

/// Those that are in order, for the cells.
ValueRules::Limits Table::checkColumnLimits(const Column &column) const
{
    if (!column.type.isNumber && !column.type.isSelector) {
        return {};
    }
    const ValueRules::Limits limits{
        memberOf(column.object, Key::MinLimit), memberOf(column.object, Key::MaxLimit),
        checkColumnLimit(column, Key::MinLimit), checkColumnLimit(column, Key::MaxLimit)};
    return ValueRules::checkOrder(m_file, m_array.url(), column.type, limits)
               ? limits
               : ValueRules::Limits();
}

ValueRules::Held Table::checkColumnLimit(const Column &column, Key key) const
{
    const Value written = memberOf(column.object, key);
    if (!written.isValid()) {
        return {};
    }
    const ValueRules::Held held = ValueRules::held(column.type, written);
    if (!ValueRules::fits(column.type, written)) {
        report(Rule::ColumnValue, written,
               QStringLiteral("'%1' is %2, which is no %3")
                   .arg(textOf(key), shown(m_file, written), column.typeName));
        return {};
    }
    return held.isNoInput ? ValueRules::Held() : held;
}

/// One that compiles, for the cells.
ValuePattern Table::checkColumnPattern(const Column &column) const
{
    const Value written = memberOf(column.object, Key::RegularExpression);
    if (!column.type.isText || !written.isValid() || !written.isText()) {
        return {};
    }
    const ValuePattern pattern(written.toString());
    if (!pattern.error().isEmpty()) {
        report(Rule::ColumnPattern, written,
               QStringLiteral("%1: %2").arg(quoted(pattern.text()), pattern.error()));
        return {};
    }
    return pattern;
}

void Table::checkColumnCount()
{
    const JsonText::Elements first(m_value);
    if (!first.isValid()) {
        return;
    }
    const int columns = isFlat() ? 1 : sizeOf(first.value());
    if (columns != static_cast<int>(m_columns.size())) {
        report(Rule::ArrayColumns, m_array.value(Key::ArrayInformation),
               QStringLiteral("%1 columns are described, and the rows have %2")
                   .arg(m_columns.size())
                   .arg(columns));
        m_columns.clear();
    }
}

void Table::checkCells()
{
    for (JsonText::Elements row(m_value); row.isValid() && !m_columns.empty(); row.next()) {
        if (isFlat()) {
            checkCell(row.value(), m_columns.front());
            continue;
        }
        auto column = m_columns.cbegin();
        for (JsonText::Elements cell(row.value()); cell.isValid(); cell.next()) {
            checkCell(cell.value(), *column++);
        }
    }
}

void Table::checkCell(const Value &cell, const Column &column)
{
    if (!column.type.hasSlot()) {
        return;
    }
    if (!ValueRules::fits(column.type, cell)) {
        report(Rule::ColumnValue, cell,
               QStringLiteral("%1 is no %2").arg(shown(m_file, cell), column.typeName));
        return;
    }
    if (column.type.isSelector && column.selection.isValid()) {
        checkIndex(m_file, m_array.url(), cell, column.selection);
    }
    ValueRules::checkWithin(m_file, m_array.url(), column.type, cell, column.limits);
    if (cell.isText() && column.type.isText && !column.pattern.matches(cell.toString())) {
        report(Rule::ColumnPattern, cell,
               QStringLiteral("%1 does not match %2")
                   .arg(quoted(cell.toString()), quoted(column.pattern.text())));
    }
}

void Table::checkRowLimits()
{
    const qint64 rows = sizeOf(m_value);
    if (m_array.flag(Key::ArrayHasDynamicRows)) {
        if (rows == 0) {
            report(Rule::RowLimits, m_value,
                   QStringLiteral("an array without a row can have no new one"));
        } else if (!m_array.has(Key::ArrayMaxRows)) {
            m_array.report(Rule::RowLimits, Key::ArrayHasDynamicRows,
                           QStringLiteral("without '%1' there can be no new row")
                               .arg(textOf(Key::ArrayMaxRows)));
        }
    }
    checkWrittenLimits(rows);
}

void Table::checkWrittenLimits(qint64 rows)
{
    const qint64 least = m_array.count(Key::ArrayMinRows);
    const qint64 most = m_array.count(Key::ArrayMaxRows);
    const bool hasMost = m_array.has(Key::ArrayMaxRows);
    if (hasMost && least > most) {
        m_array.report(Rule::RowLimits, Key::ArrayMinRows,
                       QStringLiteral("at least %1 rows, and at most %2").arg(least).arg(most));
    } else if (least > rows) {
        m_array.report(Rule::RowLimits, Key::ArrayMinRows,
                       QStringLiteral("at least %1 rows, and there are %2").arg(least).arg(rows));
    } else if (hasMost && rows > most) {
        m_array.report(Rule::RowLimits, Key::ArrayMaxRows,
                       QStringLiteral("at most %1 rows, and there are %2").arg(most).arg(rows));
    }
}

} // namespace

void TableRules::checkSelector(const CheckedElement &selector)
{
    const Value &list = selector.value(Key::SelectionList);
    if (!list.isValid()) {
        if (!selector.file().isProcess()) {
            selector.report(
                Rule::SelectorWithoutList, Key::SelectionList,
                QStringLiteral("the selector has no '%1'").arg(textOf(Key::SelectionList)));
        }
        return;
    }
    if (!isSelectionList(selector.file(), selector.url(), list)) {
        return;
    }
    checkEntries(selector.file(), selector.url(), list);
    if (selector.has(Key::Value)) {
        checkIndex(selector.file(), selector.url(), selector.value(Key::Value), list);
    }
}

void TableRules::checkArray(const CheckedElement &array)
{
    if (!array.has(Key::Value)) {
        array.report(Rule::ValueMissing, Key::Value, QStringLiteral("the leaf has no 'value'"));
    }
    Table(array).check();
}
