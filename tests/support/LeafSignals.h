#pragma once

#include "Configuration/ConfigurationDataValue.h"

#include <QSignalSpy>

/// Counts every signal that a leaf sends, and the one that reaches the root.
class LeafSignals
{
public:
    using Base = ConfigurationAndProcessDataBase;

    LeafSignals(const Base::BaseClassSharedPointer &root, const QString &url)
        : m_leaf(root->getLeafConfigurationData(url))
        , m_withArguments(m_leaf.data(),
                          QOverload<const QString &, const QVariant &>::of(&Base::propertyChanged))
        , m_without(m_leaf.data(), QOverload<>::of(&Base::propertyChanged))
        , m_value(m_leaf.data(), &ConfigurationDataValue::valueChanged)
        , m_root(root.data(), QOverload<>::of(&Base::propertyChanged))
    {
    }

    /// In this order: with arguments, without, of the value, at the root.
    QList<int> counts() const
    {
        return {m_withArguments.count(), m_without.count(), m_value.count(), m_root.count()};
    }
    bool isSilent() const { return counts() == QList<int>({0, 0, 0, 0}); }
    /// Of the first signal with arguments.
    QVariantList arguments() const { return m_withArguments.value(0); }

private:
    QSharedPointer<ConfigurationDataValue> m_leaf;
    QSignalSpy m_withArguments;
    QSignalSpy m_without;
    QSignalSpy m_value;
    QSignalSpy m_root;
};
