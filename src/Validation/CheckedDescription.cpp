#include "Validation/CheckedDescription_p.h"
#include "Validation/DocumentRules_p.h"
#include "Validation/ElementRules_p.h"
#include "Validation/KeyRules_p.h"
#include "Validation/SlotRules_p.h"
#include "Validation/TableRules_p.h"
#include "Validation/ValueRules_p.h"
#include "Validation/ValueShown_p.h"

#include <algorithm>

using Key = DescribedKey;

CheckedDescription::CheckedDescription(const QString &path, CheckedFile::Kind kind,
                                       const QString &url, Layout layout, Findings &findings)
    : m_file(path, kind, url, findings)
    , m_layout(layout)
{
    if (!m_file.read()) {
        return;
    }
    m_isParsed = true;
    m_root = std::make_unique<CheckedElement>(m_file, m_file.root(), url);
    checkElement(*m_root, true);
    if (m_isParsed) {
        checkRoot();
    }
}

void CheckedDescription::checkElement(const CheckedElement &element, bool isRoot)
{
    KeyRules::check(element);
    if (!ElementRules::checkType(element)) {
        m_isParsed = false;
        return;
    }
    if (element.type().isNode) {
        if (element.value(Key::Value).isObject()) {
            checkNode(element);
        }
    } else if (isRoot && m_file.isProcess()) {
        element.report(Rule::RootIsLeaf, Key::Type,
                       QStringLiteral("the top level is a leaf, and no tree node"));
    } else {
        checkLeaf(element);
    }
}

void CheckedDescription::checkNode(const CheckedElement &node)
{
    const JsonText::Value &children = node.value(Key::Value);
    DocumentRules::checkKeys(m_file, children, node.url());
    for (JsonText::Members member(children); member.isValid(); member.next()) {
        const QString url = CheckedFile::childUrl(node.url(), member.key().toString());
        ElementRules::checkName(node, member.key(), url);
        checkChild(member.key(), member.value(), url);
    }
    ElementRules::checkPositions(node);
}

void CheckedDescription::checkChild(const JsonText::Value &key, const JsonText::Value &child,
                                    const QString &url)
{
    if (!child.isObject()) {
        m_file.report(Rule::ChildNotObject, child, url,
                      QStringLiteral("the child %1 is %2, and should be an object")
                          .arg(quoted(key.toString()), shown(m_file, child)));
        m_isParsed = false;
        return;
    }
    checkElement(CheckedElement(m_file, child, url), false);
}

void CheckedDescription::checkLeaf(const CheckedElement &leaf)
{
    m_hasLeaf = true;
    if (m_file.isProcess()) {
        checkProcessLeaf(leaf);
    } else if (leaf.type().isArray) {
        TableRules::checkArray(leaf);
    }
    if (leaf.type().hasSlot()) {
        ValueRules::check(leaf);
    }
    if (leaf.type().isSelector) {
        TableRules::checkSelector(leaf);
    }
}

void CheckedDescription::checkProcessLeaf(const CheckedElement &leaf)
{
    if (m_layout == Layout::ByBuild) {
        m_canBeBuilt = SlotRules::checkLeafForBuild(leaf) && m_canBeBuilt;
    }
    if (leaf.type().hasSlot()) {
        m_slots.append(ProcessSlot(leaf));
        SlotRules::checkLeaf(leaf, m_slots.constLast());
    }
}

void CheckedDescription::checkRoot()
{
    if (!m_file.isProcess()) {
        ElementRules::checkStamp(*m_root);
        return;
    }
    if (!m_root->type().isNode) {
        m_canBeBuilt = false;
        return;
    }
    if (!m_hasLeaf && m_root->value(Key::Value).isObject()) {
        m_file.report(Rule::NoValues, QStringLiteral("the description has no leaf"));
    }
    // Of two slots in one place the later one in the text is told of.
    std::stable_sort(m_slots.begin(), m_slots.end(),
                     [](const ProcessSlot &left, const ProcessSlot &right) {
                         return left.offsetAt.offset() < right.offsetAt.offset();
                     });
    if (m_layout == Layout::ByBuild) {
        m_canBeBuilt = SlotRules::checkRootForBuild(*m_root) && m_canBeBuilt;
        SlotRules::checkForBuild(m_file, m_slots);
    } else {
        SlotRules::checkRegion(*m_root, m_slots);
    }
}
