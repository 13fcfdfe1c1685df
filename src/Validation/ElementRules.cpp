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
    Value key;
    Value object;
    Value position;

    /// What has no type is none, and was reported.
    bool isLeaf() const
    {
        const Value type = object.member(QLatin1String(textOf(Key::Type).toLatin1()));
        return type.isValid() && type.isText() && !DescribedType::of(type.toString()).isNode;
    }
};

/// In the order of the text.
std::vector<Sibling> siblingsOf(const Value &children)
{
    const QByteArray positionKey = textOf(Key::DisplayPosition).toLatin1();
    std::vector<Sibling> siblings;
    for (JsonText::Members member(children); member.isValid(); member.next()) {
        const Value child = member.value();
        if (child.isObject()) {
            siblings.push_back({member.key(), child, child.member(QLatin1String(positionKey))});
        }
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
    QHash<int, Value> taken;
    for (const Sibling &sibling : siblings) {
        const auto report = [&](Rule rule, const Value &at, const QString &text) {
            node.file().report(rule, at, CheckedFile::childUrl(node.url(), sibling.key.toString()),
                               text);
        };
        if (!sibling.position.isValid()) {
            if (areOrdered && sibling.isLeaf()) {
                report(Rule::DisplayPositionMissing, sibling.object,
                       QStringLiteral("no 'displayPosition', while siblings have one"));
            }
            continue;
        }
        const int position = sibling.position.toVariant().toInt();
        const auto other = taken.constFind(position);
        if (other != taken.cend()) {
            report(Rule::DisplayPositionClash, sibling.position,
                   QStringLiteral("%1 has the display position %2 as well")
                       .arg(quoted(other->toString()), QString::number(position)));
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
