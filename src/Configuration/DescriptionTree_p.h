#pragma once

#include "Companion/JsonText_p.h"
#include "Configuration/ConfigurationAndProcessDataBase.h"

#include <QByteArray>
#include <QString>

class DescriptionTexts;
class ConfigurationAndProcessDataTreeNode;

/// What an element of the library's own classes is made of: one object of a description's text.
struct DescribedElement
{
    const JsonText::Value &object;
    DescriptionTexts &texts;

    /// An element of @p Class, which is one of the library's own.
    template <class Class>
    QSharedPointer<Class> make() const
    {
        return QSharedPointer<Class>(new Class(*this));
    }
};

/// Builds the tree of a description from its text, as it would be built from its JSON object.
///
/// Only the leaves of classes that an application registered get a JSON object, which is made for them.
/// Lives as long as one description is read, which may lead to the reading of another.
class DescriptionTree
{
public:
    using Tree = ConfigurationAndProcessDataBase::BaseClassSharedPointer;

    explicit DescriptionTree(const QString &postfix);

    /// The element that @p object describes and all below it; null, with the reason in the log, if one of
    /// them cannot be made.
    Tree createNode(const JsonText::Value &object) const;

    /// Lets a change of @p child be seen at @p parent, and so up to the root.
    static void forwardPropertyChanged(const ConfigurationAndProcessDataBase &child,
                                       const ConfigurationAndProcessDataBase &parent);
    /// Notes an element that a registered creator made, and that is of no class of the library.
    static void noteLeaf(const Tree &leaf);

private:
    Tree createTreeNode(const JsonText::Value &object) const;
    bool addChilds(ConfigurationAndProcessDataTreeNode &node, const JsonText::Value &childs) const;
    Tree createLeaf(const JsonText::Value &object) const;

    QString m_postfix;
    // The vocabulary as it stands in a text.
    QByteArray m_typeKey;
    QByteArray m_valueKey;
    QByteArray m_treeNode;
};
