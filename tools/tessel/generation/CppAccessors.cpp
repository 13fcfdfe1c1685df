#include "generation/CppAccessors.h"

#include "Companion/ConfigurationAndProcessDataDefinitions.h"
#include "generation/CppClasses.h"
#include "generation/CppNames.h"
#include "text/Output.h"

#include <QHash>

#include <algorithm>
#include <deque>

namespace {

using Definitions = ConfigurationAndProcessDataDefinitions;

/// A piece of the URLs with what lies below it.
struct Node
{
    QString key;
    const Leaf *leaf = nullptr;
    std::deque<Node> children;      ///< in the order of the leaves
    QHash<QString, Node *> childOf; ///< by key: a node may have as many as a device has values
};

void insert(Node &root, const Leaf &leaf)
{
    Node *node = &root;
    const QStringList pieces = leaf.url.split(QLatin1Char('/'));
    for (const auto &piece : pieces) {
        Node *&child = node->childOf[piece];
        if (child == nullptr) {
            node->children.push_back({piece, nullptr, {}, {}});
            child = &node->children.back();
        }
        node = child;
    }
    // Of two leaves with one URL the first is reached.
    node->leaf = node->leaf == nullptr ? &leaf : node->leaf;
}

/// A QString of the same units, whatever they are: with zeros, a mark of the byte order and halves of a pair.
QString literal(const QString &text)
{
    constexpr ushort firstPrintable = 0x20;
    constexpr ushort lastPrintable = 0x7E;
    constexpr int digits = 4;
    QString escaped;
    for (const QChar character : text) {
        const ushort code = character.unicode();
        if (character == QLatin1Char('"') || character == QLatin1Char('\\')
            || character == QLatin1Char('?')) {
            escaped += QLatin1Char('\\') + QString(character);
        } else if (code >= firstPrintable && code <= lastPrintable) {
            escaped += character;
        } else {
            // A digit behind it would belong to it, so that the text begins anew.
            escaped += QStringLiteral("\\x%1\" \"").arg(code, digits, 16, QLatin1Char('0'));
        }
    }
    return QStringLiteral("QStringLiteral(\"") + escaped + QStringLiteral("\")");
}

QString integerType(const LeafSlot &slot, bool isSigned)
{
    constexpr uint bitsOfByte = 8;
    const uint bits = slot.size * bitsOfByte;
    if (slot.metaType == QMetaType::LongLong || slot.metaType == QMetaType::ULongLong) {
        return isSigned ? QStringLiteral("Exact<qint64>") : QStringLiteral("Exact<quint64>");
    }
    const qint64 most = (qint64(1) << std::min(isSigned ? bits - 1 : bits, 32U)) - 1;
    const qint64 least = isSigned ? -most - 1 : 0;
    return QStringLiteral("Integer<%1, %2>").arg(least).arg(most);
}

/// The class of a leaf; empty if it has no slot that can be used.
QString classOf(const LeafSlot &slot)
{
    switch (slot.metaType) {
    case QMetaType::Bool: return QStringLiteral("Boolean");
    case QMetaType::Int:
    case QMetaType::LongLong: return integerType(slot, true);
    case QMetaType::UInt:
    case QMetaType::ULongLong: return integerType(slot, false);
    case QMetaType::Float:
    case QMetaType::Double: return QStringLiteral("Double");
    case QMetaType::QString: return QStringLiteral("Exact<QString>");
    default: return {};
    }
}

/// What can stand in a comment of one line: without what moves text about, and in whole characters.
QString commentText(const QString &text)
{
    constexpr int digits = 4;
    const auto escapeOf = [](ushort unit) {
        return QStringLiteral("\\u%1").arg(unit, digits, 16, QLatin1Char('0'));
    };
    const QString shown = printable(text);
    QString result;
    for (int i = 0; i < shown.size(); ++i) {
        const QChar unit = shown.at(i);
        const bool isPair = unit.isHighSurrogate() && i + 1 < shown.size()
                            && shown.at(i + 1).isLowSurrogate();
        if (!isPair) {
            result += unit.isSurrogate() ? escapeOf(unit.unicode()) : QString(unit);
            continue;
        }
        const QChar second = shown.at(++i);
        const bool isFormat = QChar::category(QChar::surrogateToUcs4(unit, second))
                              == QChar::Other_Format;
        result += isFormat ? escapeOf(unit.unicode()) + escapeOf(second.unicode())
                           : QString(unit) + second;
    }
    return result;
}

QString commentOf(const Leaf &leaf)
{
    const LeafSlot slot = slotOf(leaf);
    const QString unit = textProperty(leaf, Definitions::getKeyDataPropertyUnit());
    QString text = QStringLiteral("`%1`, %2").arg(leaf.url, slot.type);
    text += unit.isEmpty() ? QString() : QStringLiteral(" in ") + unit;
    text += slot.isReadOnly ? QStringLiteral(", read-only") : QString();
    // A backslash at the end would take the next line into the comment.
    return QStringLiteral("/// ") + commentText(text) + QLatin1Char('.');
}

/// Writes the structs of a tree, those of the children first.
class StructWriter
{
public:
    explicit StructWriter(const QString &nameSpace) : m_nameSpace(QStringLiteral("::") + nameSpace)
    {
    }

    /// The struct of @p node, which holds those of its children; @p way leads to it.
    void add(const Node &node, const QString &name, const QString &way = {})
    {
        m_used.insert(name);
        QStringList keys;
        for (const auto &child : node.children) {
            keys.append(child.key);
        }
        const auto names = CppNames::uniqueIdentifiers(keys, {name, QStringLiteral("tesselRoot")});
        QStringList members;
        QStringList initialisers;
        for (const auto &child : node.children) {
            const QString identifier = names.value(child.key);
            if (child.leaf != nullptr) {
                m_accessors.append({*child.leaf, way + identifier, classOf(slotOf(*child.leaf))});
                addLeaf(m_accessors.last(), identifier, members, initialisers);
            } else {
                const QString type = typeName(name, identifier);
                add(child, type, way + identifier + QLatin1Char('.'));
                members.append(
                    QStringLiteral("    %1::nodes::%2 %3;\n").arg(m_nameSpace, type, identifier));
                initialisers.append(identifier + QStringLiteral("(tesselRoot)"));
            }
        }
        write(name, members, initialisers);
    }
    const QString &text() const { return m_text; }
    const QVector<CppAccessor> &accessors() const { return m_accessors; }

private:
    QString typeName(const QString &parent, const QString &identifier)
    {
        const QString stem = CppNames::identifierOf(parent + QLatin1Char('_') + identifier);
        QString name = stem;
        for (int number = 2; m_used.contains(name); ++number) {
            name = QStringLiteral("%1_%2").arg(stem).arg(number);
        }
        m_used.insert(name);
        return name;
    }

    void addLeaf(const CppAccessor &accessor, const QString &identifier, QStringList &members,
                 QStringList &initialisers)
    {
        const QString comment = commentOf(accessor.leaf);
        if (accessor.className.isEmpty()) {
            members.append(QStringLiteral("    // left out: ") + comment + QLatin1Char('\n'));
            return;
        }
        members.append(QStringLiteral("    %1\n    %2::leaf::%3 %4;\n")
                           .arg(comment, m_nameSpace, accessor.className, identifier));
        initialisers.append(
            QStringLiteral("%1(tesselRoot, %2)").arg(identifier, literal(accessor.leaf.url)));
    }

    void write(const QString &name, const QStringList &members, const QStringList &initialisers)
    {
        const QString parameter = initialisers.isEmpty() ? QString() : QStringLiteral("tesselRoot");
        m_text += QStringLiteral("\nstruct %1\n{\n    explicit %1(const %2::Root &%3)")
                      .arg(name, m_nameSpace, parameter);
        m_text += initialisers.isEmpty() ? QString()
                                         : QStringLiteral("\n        : ")
                                               + initialisers.join(QStringLiteral("\n        , "));
        m_text += QStringLiteral("\n    {\n    }\n\n") + members.join(QString())
                  + QStringLiteral("};\n");
    }

    QString m_nameSpace;
    QString m_text;
    QVector<CppAccessor> m_accessors;
    QSet<QString> m_used;
};

QString beginText(const CppDescription &description)
{
    constexpr int digits = 16;
    const QString fingerprint = QStringLiteral("%1").arg(description.fingerprint, digits, 16,
                                                         QLatin1Char('0'));
    return QStringLiteral(R"(// Made by `tessel gen cpp` from %1. Do not change it: make it anew.
#pragma once

#include "Access/ProcessDoubleHandle.h"
#include "Inspection/RegionInspection.h"
#include "ProcessData/Linux/ProcessDataValue.h"
#include "ProcessDataManagement/LayoutFingerprint.h"

#include <QString>
#include <QVariant>

namespace %2 {

/// LayoutFingerprint of the description from which this was made.
constexpr quint64 layoutFingerprint = Q_UINT64_C(0x%3);

)")
        .arg(commentText(description.fileName), description.nameSpace, fingerprint);
}

QString endText(const QString &nameSpace)
{
    return QStringLiteral(R"(
} // namespace nodes

/// All values of a tree, each looked up once. If the tree or its region does not fit, none of them is valid, and
/// getProblem() says why.
class Values
{
public:
    explicit Values(const Root &root)
        : m_problem(problemOf(root)), m_all(m_problem.isEmpty() ? root : Root())
    {
    }

    bool isValid() const { return m_problem.isEmpty(); }
    const QString &getProblem() const { return m_problem; }
    const nodes::All *operator->() const { return &m_all; }

private:
    QString m_problem;
    nodes::All m_all;
};

} // namespace %1
)")
        .arg(nameSpace);
}

} // namespace

CppHeader cppHeader(const CppDescription &description)
{
    Node root;
    for (const auto &leaf : description.leaves) {
        insert(root, leaf);
    }
    StructWriter structs(description.nameSpace);
    structs.add(root, QStringLiteral("All"));
    return {beginText(description) + cppClasses() + QStringLiteral("\nnamespace nodes {\n")
                + structs.text() + endText(description.nameSpace),
            structs.accessors()};
}
