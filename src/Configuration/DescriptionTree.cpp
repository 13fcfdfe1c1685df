#include "Companion/ConfigurationAndProcessDataDefinitions.h"
#include "Configuration/ConfigurationAndProcessDataTreeNode.h"
#include "Configuration/DescriptionTexts_p.h"
#include "Configuration/DescriptionTree_p.h"
#include "Configuration/ElementRegistration_p.h"
#include "Configuration/ParsedDescriptions_p.h"

#include <QDebug>
#include <QJsonObject>
#include <QStringList>

namespace {

using Base = ConfigurationAndProcessDataBase;
using Definitions = ConfigurationAndProcessDataDefinitions;
using ElementRegistration::LeafFactory;
using Value = JsonText::Value;

bool isText(const Value &value, const QByteArray &text)
{
    return value.isText() && value.isKey(QLatin1String(text));
}

QStringList keysOf(const Value &object)
{
    QStringList keys;
    for (JsonText::Members member(object); member.isValid(); member.next()) {
        keys.append(member.key().toString());
    }
    return keys;
}

} // namespace

DescriptionTree::DescriptionTree(const QString &postfix)
    : m_postfix(postfix)
    , m_typeKey(Definitions::getKeyDataPropertyType().toLatin1())
    , m_valueKey(Definitions::getKeyDataPropertyValue().toLatin1())
    , m_treeNode(Definitions::getKeyDataTypeTreeNode().toLatin1())
{
}

void DescriptionTree::forwardPropertyChanged(const Base &child, const Base &parent)
{
    QObject::connect(&child, QOverload<>::of(&Base::propertyChanged), &parent,
                     QOverload<>::of(&Base::propertyChanged));
}

void DescriptionTree::noteLeaf(const Tree &leaf)
{
    if (leaf.isNull() || !ElementRegistration::isOfOwnClass(*leaf)) {
        ParsedDescriptions::noteWhatCanBeSeen();
    }
}

DescriptionTree::Tree DescriptionTree::createNode(const Value &object) const
{
    const DescriptionTexts texts;
    // A text that is an array has no keys.
    const Value type = object.isObject() ? object.member(QLatin1String(m_typeKey)) : Value();
    if (!type.isValid()) {
        qWarning() << "key 'type' not found in JSON object";
        return {};
    }
    return isText(type, m_treeNode) ? createTreeNode(object) : createLeaf(object);
}

DescriptionTree::Tree DescriptionTree::createTreeNode(const Value &object) const
{
    const Value childs = object.member(QLatin1String(m_valueKey));
    if (!childs.isValid()) {
        qWarning() << "childs information is invalid" << keysOf(object);
        return {};
    }
    const DescribedElement described{object, *DescriptionTexts::current()};
    const auto node = described.make<ConfigurationAndProcessDataTreeNode>();
    if (childs.isObject() && !addChilds(*node, childs)) {
        return {};
    }
    return node;
}

bool DescriptionTree::addChilds(ConfigurationAndProcessDataTreeNode &node,
                                const Value &childs) const
{
    DescriptionTexts::Children children(*DescriptionTexts::current());
    for (JsonText::Members member(childs); member.isValid(); member.next()) {
        const QString key = children.next(member.key());
        if (!member.value().isObject()) {
            qWarning() << "non object child element in tree node found" << key;
            return false;
        }
        const Tree child = createNode(member.value());
        if (child.isNull()) {
            qWarning() << "object is invalid" << key;
            return false;
        }
        node.addElement(key, child);
        forwardPropertyChanged(*child, node);
    }
    return true;
}

DescriptionTree::Tree DescriptionTree::createLeaf(const Value &object) const
{
    const auto *creator = LeafFactory::instance().findCreator(m_postfix);
    if (creator == nullptr) {
        qWarning() << "wrong file postfix" << m_postfix;
        return {};
    }
    const DescribedElement described{object, *DescriptionTexts::current()};
    if (const Tree leaf = ElementRegistration::createOwnLeaf(*creator, described)) {
        return leaf;
    }
    const Tree leaf(creator->create(object.toJsonValue().toObject()));
    noteLeaf(leaf);
    return leaf;
}
