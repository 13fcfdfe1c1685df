#pragma once

#include "Configuration/ConfigurationAndProcessDataBase.h"

/// An inner node of a description tree: it owns its children by key.
class TESSEL_EXPORT ConfigurationAndProcessDataTreeNode : public ConfigurationAndProcessDataBase
{
    Q_OBJECT

public:
    /// A node without children, with the properties of @p json.
    ConfigurationAndProcessDataTreeNode(const QJsonObject &json, QObject *parent);
    ~ConfigurationAndProcessDataTreeNode() override;

    using ConfigurationAndProcessDataBase::getLeaf;
    const BaseClassSharedPointer getLeaf(const QStringList &pieces) override;
    using ConfigurationAndProcessDataBase::isUrlValid;
    /// Whether the pieces lead to an element below this node.
    bool isUrlValid(const QStringList &pieces) override;

    void getContentAsQJsonObject(QJsonObject &json) const override;
    void collectElements(ListElements &elements, bool sorted) const override;
    void collectUrlsOfElements(QStringList &urls, QString &prefix) const override;

    /// Takes @p element in as a child. A child already there under @p key is released. Makes no
    /// signal connection: propertyChanged() of a child added by hand is not passed on.
    virtual void addElement(const QString &key, const BaseClassSharedPointer &element);
    /// Releases the child under @p key, if there is one.
    virtual void deleteElement(const QString &key);

private:
    friend struct DescribedElement;
    Q_DISABLE_COPY(ConfigurationAndProcessDataTreeNode)

    Q_DECL_HIDDEN explicit ConfigurationAndProcessDataTreeNode(const DescribedElement &described);
};
