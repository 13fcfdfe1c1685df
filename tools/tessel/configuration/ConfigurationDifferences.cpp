#include "configuration/ConfigurationDifferences.h"

#include "Companion/ConfigurationAndProcessDataDefinitions.h"
#include "Configuration/ConfigurationAndProcessDataTools.h"
#include "configuration/ConfigurationValueText.h"
#include "descriptions/TreeUrl.h"
#include "leaves/NumberLimits.h"

#include <QMap>

#include <set>

namespace {

using Base = ConfigurationAndProcessDataBase;
using Definitions = ConfigurationAndProcessDataDefinitions;
using Properties = Base::PropertyMap;

struct Element
{
    Base::BaseClassSharedPointer element;
    bool isLeaf;
};
using Elements = QMap<QString, Element>;

/// Leaves and nodes: the latter carry the stamps.
void collect(const Base::BaseClassSharedPointer &element, const QString &url, Elements &elements)
{
    const bool isLeaf = !qSharedPointerDynamicCast<ConfigurationDataValue>(element).isNull();
    elements.insert(url, {element, isLeaf});
    const auto &children = element->getChildMap();
    for (auto child = children.cbegin(); !isLeaf && child != children.cend(); ++child) {
        if (child.value()) {
            collect(child.value(), TreeUrl::joined(url, child.key()), elements);
        }
    }
}

Elements elementsOf(const ConfigurationSource &source)
{
    Elements elements;
    collect(source.root(), {}, elements);
    return elements;
}

ConfigurationLeaf leafOf(const Element &element)
{
    return {{}, qSharedPointerCast<ConfigurationDataValue>(element.element)};
}

/// Why a limit of @p now refuses a number; empty if it does not.
QString limitRefusal(const QString &key, const QVariant &value, const ConfigurationValueRules &now)
{
    if (!now.isNumber()) {
        return {};
    }
    return key == Definitions::getKeyDataPropertyMinLimit() ? limitProblem(value, now.minLimit, {})
                                                            : limitProblem(value, {}, now.maxLimit);
}

QString patternRefusal(const QVariant &value, const Element &now)
{
    const bool isRefused = rulesOf(leafOf(now)).metaType == QMetaType::QString
                           && !ConfigurationAndProcessDataTools::checkRegularExpression(
                               now.element, value.toString());
    return isRefused ? QStringLiteral("the former value does not match the pattern") : QString();
}

/// Why a table may not have so many rows; empty if it may.
QString rowRefusal(const QString &key, int rows, const Element &now)
{
    const QVariant limit = now.element->getProperty(key);
    if (limit.isNull() || !leafOf(now).isArray()) {
        return {};
    }
    if (key == Definitions::getKeyDataPropertyArrayMinRows()) {
        return rows < limit.toInt()
                   ? QStringLiteral("%1 rows are less than %2").arg(rows).arg(limit.toInt())
                   : QString();
    }
    return rows > limit.toInt()
               ? QStringLiteral("%1 rows are more than %2").arg(rows).arg(limit.toInt())
               : QString();
}

/// Why the value of @p former may not be written into @p now as far as the property under @p key goes; empty if
/// it may. Other properties refuse nothing.
QString refusal(const QString &key, const Element &former, const Element &now)
{
    const ConfigurationValueRules rules = rulesOf(leafOf(now));
    const QVariant value = leafOf(former).element->getValue();
    if (value.isNull() || rulesOf(leafOf(former)).type != rules.type) {
        return {};
    }
    if (key == Definitions::getKeyDataPropertyMinLimit()
        || key == Definitions::getKeyDataPropertyMaxLimit()) {
        return limitRefusal(key, value, rules);
    }
    if (key == Definitions::getKeyDataPropertyRegularExpression()) {
        return patternRefusal(value, now);
    }
    if (key == Definitions::getKeyDataPropertyArrayMinRows()
        || key == Definitions::getKeyDataPropertyArrayMaxRows()) {
        return rowRefusal(key, value.toList().size(), now);
    }
    return {};
}

/// What programs count on of the columns.
QVariantList columnFacts(const QVariant &arrayInformation)
{
    QVariantList facts;
    const QVariantList dimensions = arrayInformation.toList();
    for (const QVariant &dimension : dimensions) {
        QVariantList columns;
        const QVariantList entries = dimension.toList();
        for (const QVariant &entry : entries) {
            const QVariantMap column = entry.toMap();
            columns.append(QVariant(
                QVariantList{column.value(Definitions::getKeyDataPropertyType()).toString(),
                             column.value(Definitions::getKeyDataPropertyUnitType()).toString()}));
        }
        facts.append(QVariant(columns));
    }
    return facts;
}

QString cellProblem(const QVariant &cell, const ConfigurationValueRules &rules)
{
    QVariant number = cell;
    const bool isNumber = rules.isNumber() && !cell.isNull() && number.convert(rules.metaType);
    return isNumber ? limitProblem(number, rules.minLimit, rules.maxLimit) : QString();
}

/// Why the limits of the columns of now refuse a cell of @p table that those of the former ones allow; empty if they
/// do not.
QString cellRefusal(const QVariantList &table, const QVariantList &formerColumns,
                    const QVariantList &columns)
{
    for (int column = 0; column < columns.size(); ++column) {
        const ConfigurationValueRules former = rulesOf(formerColumns[column].toMap());
        const ConfigurationValueRules now = rulesOf(columns[column].toMap());
        for (int row = 0; row < table.size(); ++row) {
            const QVariant cell = table[row].toList().value(column);
            const QString problem = cellProblem(cell, former).isEmpty() ? cellProblem(cell, now)
                                                                        : QString();
            if (!problem.isEmpty()) {
                return QStringLiteral("cell %1,%2: %3").arg(row).arg(column).arg(problem);
            }
        }
    }
    return {};
}

/// Why programs cannot go on with the columns of now, or with a table that was allowed; empty if they can.
QString columnProblem(const QVariant &former, const QVariant &now, const QVariantList &table)
{
    if (!isSameValue(columnFacts(former), columnFacts(now))) {
        return QStringLiteral("it has other columns");
    }
    const QVariantList dimensions = now.toList();
    int dimension = 0;
    const QVariantList formerDimensions = former.toList();
    for (const QVariant &formerDimension : formerDimensions) {
        const QVariantList columns = dimensions[dimension++].toList();
        int column = 0;
        const QVariantList formerColumns = formerDimension.toList();
        for (const QVariant &formerColumn : formerColumns) {
            const QString problem = selectionProblem(
                rulesOf(formerColumn.toMap()).selectionList,
                rulesOf(columns[column++].toMap()).selectionList);
            if (!problem.isEmpty()) {
                return problem;
            }
        }
    }
    // The first dimension is that of the rows.
    return cellRefusal(table, former.toList().value(1).toList(), dimensions.value(1).toList());
}

Change changeOf(const QString &key, const QVariant &before, const QVariant &after,
                const Element &former, const Element &now)
{
    Change change{key, before, after, Verdict::Compatible, {}};
    if (key == Definitions::getKeyDataPropertyType()) {
        change.reason = QStringLiteral("it has another type");
    } else if (key == Definitions::getKeyDataPropertyReadOnly() && after.toBool()) {
        change.reason = QStringLiteral("it can no longer be changed");
    } else if (key == Definitions::getKeyDataPropertyArrayInformation()) {
        change.reason = columnProblem(before, after,
                                      former.isLeaf ? leafOf(former).element->getValue().toList()
                                                    : QVariantList());
    } else if (former.isLeaf && refusal(key, former, former).isEmpty()) {
        change.reason = refusal(key, former, now);
    }
    change.verdict = change.reason.isEmpty() ? Verdict::Compatible : Verdict::Breaking;
    return change;
}

/// Whether both are tables of one shape, so that they can be compared cell by cell.
bool haveOneShape(const QVariantList &former, const QVariantList &now)
{
    bool isSame = former.size() == now.size();
    for (int row = 0; isSame && row < former.size(); ++row) {
        isSame = former[row].userType() == QMetaType::QVariantList
                 && now[row].userType() == QMetaType::QVariantList
                 && former[row].toList().size() == now[row].toList().size();
    }
    return isSame;
}

void addCells(QVector<Difference> &differences, const QString &url, const QVariantList &former,
              const QVariantList &now)
{
    for (int row = 0; row < former.size(); ++row) {
        const QVariantList before = former[row].toList();
        const QVariantList after = now[row].toList();
        for (int column = 0; column < before.size(); ++column) {
            if (!isSameValue(before[column], after[column])) {
                Difference cell{Difference::Kind::Configuration,
                                url + QStringLiteral("#%1,%2").arg(row).arg(column),
                                {}};
                addCompatible(cell, Definitions::getKeyDataPropertyValue(), before[column],
                              after[column]);
                differences.append(cell);
            }
        }
    }
}

Properties propertiesOf(const Element &element)
{
    Properties properties = element.element->getProperties();
    if (element.isLeaf) {
        properties.insert(Definitions::getKeyDataPropertyValue(),
                          leafOf(element).element->getValue());
    } else {
        properties.remove(Definitions::getKeyDataPropertyValue());
    }
    return properties;
}

void addElement(QVector<Difference> &differences, const QString &url, const Element &former,
                const Element &now)
{
    Difference difference{Difference::Kind::Configuration, url, {}};
    QVector<Difference> cells;
    const Properties before = propertiesOf(former);
    const Properties after = propertiesOf(now);
    std::set<QString> keys;
    for (const Properties &properties : {before, after}) {
        for (auto property = properties.cbegin(); property != properties.cend(); ++property) {
            keys.insert(property.key());
        }
    }
    for (const QString &key : keys) {
        const QVariant was = before.value(key);
        const QVariant is = after.value(key);
        const bool areTables = key == Definitions::getKeyDataPropertyValue()
                               && was.userType() == QMetaType::QVariantList
                               && is.userType() == QMetaType::QVariantList;
        if (isReadAlike(key, was, is)) {
            continue;
        }
        if (areTables && haveOneShape(was.toList(), is.toList())) {
            addCells(cells, url, was.toList(), is.toList());
        } else if (key == QLatin1String("selectionList")) {
            addSelectionList(difference, was, is);
        } else if (key == Definitions::getKeyDataPropertyUnit()
                   || key == Definitions::getKeyDataPropertyUnitType()) {
            addUnit(difference, key, was, is);
        } else {
            difference.changes.append(changeOf(key, was, is, former, now));
        }
    }
    if (!difference.changes.isEmpty()) {
        differences.append(difference);
    }
    differences += cells;
}

void addOneSided(QVector<Difference> &differences, const QString &url, const Element &element,
                 bool isNew)
{
    const QVariant value = leafOf(element).element->getValue();
    Difference difference{Difference::Kind::Configuration, url, {}};
    if (isNew) {
        addCompatible(difference, QStringLiteral("added"), {}, value);
    } else {
        difference.changes.append({QStringLiteral("removed"),
                                   value,
                                   {},
                                   Verdict::Breaking,
                                   QStringLiteral("there is nothing at its URL")});
    }
    differences.append(difference);
}

} // namespace

QVector<Difference> configurationDifferences(const ConfigurationSource &former,
                                             const ConfigurationSource &now)
{
    const Elements formerElements = elementsOf(former);
    const Elements elements = elementsOf(now);
    QVector<Difference> differences;
    for (auto element = formerElements.cbegin(); element != formerElements.cend(); ++element) {
        const auto other = elements.constFind(element.key());
        const bool isSameKind = other != elements.cend() && other->isLeaf == element->isLeaf;
        if (isSameKind) {
            addElement(differences, element.key(), *element, *other);
        } else if (element->isLeaf) {
            addOneSided(differences, element.key(), *element, false);
        }
    }
    for (auto element = elements.cbegin(); element != elements.cend(); ++element) {
        const auto other = formerElements.constFind(element.key());
        if (element->isLeaf && (other == formerElements.cend() || !other->isLeaf)) {
            addOneSided(differences, element.key(), *element, true);
        }
    }
    return differences;
}
