#include "configuration/ConfigurationDifferences.h"

#include "Companion/ConfigurationAndProcessDataDefinitions.h"
#include "Configuration/ConfigurationAndProcessDataTools.h"
#include "configuration/ConfigurationValueText.h"
#include "descriptions/TreeUrl.h"
#include "values/ValueLimits.h"

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

/// Why the value of @p former may not be written into @p now; empty if it may.
QString refusal(const Element &former, const Element &now)
{
    const ConfigurationValueRules rules = rulesOf(leafOf(now));
    const QVariant value = leafOf(former).element->getValue();
    if (value.isNull() || rulesOf(leafOf(former)).type != rules.type) {
        return {};
    }
    const QString problem = limitProblem(value, rules.minLimit, rules.maxLimit);
    if (rules.isNumber() && !problem.isEmpty()) {
        return problem;
    }
    const bool isText = rules.metaType == QMetaType::QString;
    return isText
                   && !ConfigurationAndProcessDataTools::checkRegularExpression(now.element,
                                                                                value.toString())
               ? QStringLiteral("the former value does not match the pattern")
               : QString();
}

bool isRule(const QString &key)
{
    return key == Definitions::getKeyDataPropertyMinLimit()
           || key == Definitions::getKeyDataPropertyMaxLimit()
           || key == Definitions::getKeyDataPropertyRegularExpression();
}

/// What programs count on of the columns.
QVariantList columnFacts(const QVariant &arrayInformation)
{
    QVariantList facts;
    for (const QVariant &dimension : arrayInformation.toList()) {
        QVariantList columns;
        for (const QVariant &entry : dimension.toList()) {
            const QVariantMap column = entry.toMap();
            columns.append(
                QVariant(QVariantList{column.value(Definitions::getKeyDataPropertyType()),
                                      column.value(Definitions::getKeyDataPropertyUnitType())}));
        }
        facts.append(QVariant(columns));
    }
    return facts;
}

Change changeOf(const QString &key, const QVariant &before, const QVariant &after,
                const Element &former, const Element &now)
{
    Change change{key, before, after, Verdict::Compatible, {}};
    if (key == Definitions::getKeyDataPropertyType()) {
        change.reason = QStringLiteral("it has another type");
    } else if (key == Definitions::getKeyDataPropertyReadOnly() && after.toBool()) {
        change.reason = QStringLiteral("it can no longer be changed");
    } else if (key == Definitions::getKeyDataPropertyArrayInformation()
               && !isSameValue(columnFacts(before), columnFacts(after))) {
        change.reason = QStringLiteral("it has other columns");
    } else if (former.isLeaf && isRule(key) && refusal(former, former).isEmpty()) {
        change.reason = refusal(former, now);
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
        if (isSameValue(was, is)) {
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
