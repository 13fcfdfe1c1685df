#include "Companion/SelectorUrlArrayIndex.h"
#include "Validation/ElementRules_p.h"
#include "Validation/ValueShown_p.h"

#include <QHash>

#include <algorithm>
#include <vector>

namespace {

using Key = DescribedKey;
using Value = JsonText::Value;

void checkTypeName(const CheckedElement &element)
{
    const QString &name = element.typeName();
    if (!element.type().isKnown()) {
        element.report(Rule::UnknownType, Key::Type,
                       QStringLiteral("unknown type %1%2")
                           .arg(quoted(name), hintOf(name, DescribedType::names())));
    } else if (element.file().isProcess() && element.type().isArray) {
        element.report(Rule::UnknownType, Key::Type,
                       QStringLiteral("an array has no slot in a region"));
    }
}

/// A child with the order that it asks for, if it does.
struct Sibling
{
    QString key;
    Value object;
    Value position;
    bool isLeaf;
};

std::vector<Sibling> siblingsOf(const Value &children)
{
    const QLatin1String positionKey("displayPosition");
    std::vector<Sibling> siblings;
    for (JsonText::Members member(children); member.isValid(); member.next()) {
        const Value child = member.value();
        if (!child.isObject()) {
            continue;
        }
        const Value type = child.member(QLatin1String(textOf(Key::Type).toLatin1()));
        const bool isNode = type.isValid() && type.isText()
                            && DescribedType::of(type.toString()).isNode;
        siblings.push_back({member.key().toString(), child, child.member(positionKey), !isNode});
    }
    std::sort(siblings.begin(), siblings.end(), [](const Sibling &left, const Sibling &right) {
        return left.object.offset() < right.object.offset();
    });
    return siblings;
}

} // namespace

bool ElementRules::checkType(const CheckedElement &element)
{
    if (!element.has(Key::Type)) {
        element.report(Rule::MissingKey, Key::Type, QStringLiteral("the element has no 'type'"));
        return false;
    }
    if (!element.value(Key::Type).isText()) {
        return true; // It is a leaf of no type, and was reported by its keys.
    }
    checkTypeName(element);
    if (!element.type().isNode) {
        return true;
    }
    if (!element.has(Key::Value)) {
        element.report(Rule::MissingKey, Key::Value,
                       QStringLiteral("the tree node has no 'value' with its children"));
        return false;
    }
    if (!element.value(Key::Value).isObject()) {
        element.report(Rule::ChildrenNotObject, Key::Value,
                       QStringLiteral("the children are %1, and should be an object")
                           .arg(shown(element.file(), element.value(Key::Value))));
    }
    return true;
}

void ElementRules::checkName(const CheckedElement &parent, const Value &key, const QString &url)
{
    const QString name = key.toString();
    if (name.isEmpty() || name.contains(QLatin1Char('/'))) {
        parent.file().report(
            Rule::UnreachableKey, key, url,
            name.isEmpty()
                ? QStringLiteral("no URL reaches an element without a name")
                : QStringLiteral("no URL reaches %1, because of its '/'").arg(quoted(name)));
    }
    SelectorUrlArrayIndex index;
    QString withoutIndex;
    SelectorUrlArrayIndex::splitUrlAndArrayIndex(url, index, withoutIndex);
    if (index.isValid() && !parent.file().isProcess()) {
        parent.file().report(
            Rule::IndexLikeKey, key, url,
            QStringLiteral("%1 is taken for a cell of %2").arg(quoted(name), quoted(withoutIndex)));
    }
}

void ElementRules::checkPositions(const CheckedElement &node)
{
    const std::vector<Sibling> siblings = siblingsOf(node.value(Key::Value));
    const bool areOrdered = std::any_of(siblings.begin(), siblings.end(),
                                        [](const Sibling &one) { return one.position.isValid(); });
    QHash<int, QString> taken;
    for (const Sibling &sibling : siblings) {
        const QString url = CheckedFile::childUrl(node.url(), sibling.key);
        if (!sibling.position.isValid()) {
            if (areOrdered && sibling.isLeaf) {
                node.file().report(Rule::DisplayPositionMissing, sibling.object, url,
                                   QStringLiteral("no 'displayPosition', while siblings have one"));
            }
            continue;
        }
        const int position = sibling.position.toVariant().toInt();
        const auto other = taken.constFind(position);
        if (other != taken.cend()) {
            node.file().report(Rule::DisplayPositionClash, sibling.position, url,
                               QStringLiteral("%1 has the display position %2 as well")
                                   .arg(quoted(*other))
                                   .arg(position));
        } else {
            taken.insert(position, sibling.key);
        }
    }
}

void ElementRules::checkStamp(const CheckedElement &root)
{
    const bool hasOrigin = root.has(Key::ModifiedBy);
    if (hasOrigin != root.has(Key::LastModified)) {
        root.report(Rule::StampIncomplete, hasOrigin ? Key::ModifiedBy : Key::LastModified,
                    QStringLiteral("there is no '%1' beside it, so that no change is stamped")
                        .arg(textOf(hasOrigin ? Key::LastModified : Key::ModifiedBy)));
    }
}
