#pragma once

#include "Configuration/ConfigurationAndProcessDataBase.h"

#include <QJsonArray>
#include <QJsonObject>
#include <QRandomGenerator>

/// Makes configurations, and what one may ask of them: URLs, property paths and values, most of
/// which fit, and some of which go astray.
class RandomConfiguration
{
public:
    using Root = ConfigurationAndProcessDataBase::BaseClassSharedPointer;

    explicit RandomConfiguration(quint32 seed) : m_random(seed) { }

    /// The description of a tree with at least one leaf.
    QJsonObject description();

    /// Leads to an element of the tree, as a rule.
    QString url(const Root &root);
    /// The same, but to a leaf and without fail; empty if the walk ends at an empty node or at no
    /// element.
    QString leafUrl(const Root &root);
    /// Follows the properties of an element to some value, as a rule.
    QString propertyPath(const Root &element);

    /// Anything that a caller may write.
    QVariant value(int depth = 2);
    /// A list of rows, sometimes ragged, flat or deeper than a table.
    QVariantList cells();
    /// A value in the type in which an element of this type name holds it.
    QVariant heldValue(const QString &typeName);
    QVariant columnDescription();

    QString text();
    int below(int bound) { return m_random.bounded(bound); }
    /// True once in so many times.
    bool once(int inSoMany) { return below(inSoMany) == 0; }
    template <class List>
    auto pick(const List &list)
    {
        return list.at(below(list.size()));
    }

private:
    QJsonObject node(int depth);
    QJsonObject leaf();
    QJsonObject array();
    QJsonValue json(int depth);

    QRandomGenerator m_random;
};
