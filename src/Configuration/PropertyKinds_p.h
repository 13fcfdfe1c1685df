#pragma once

#include "Configuration/PropertyRecord_p.h"

#include <array>
#include <vector>

/// The shapes of elements that have the same keys, as far as one description, or the files of one
/// directory, have come.
///
/// Of a dozen values a leaf mostly has nine in common with its siblings: type, unit, limits. An element
/// that equals one of the last few in at least two values makes a kind: a shape that carries these values
/// for all that come after it and have them as well. How many kinds there can be is bound by the number
/// of elements, so that few alike never cost more than they save.
class PropertyKinds
{
public:
    explicit PropertyKinds(const PropertyRecord::Shape &plain) : m_plain(plain) { }

    /// Without common values.
    const PropertyRecord::Shape &plain() const { return m_plain; }
    /// The shape for an element with @p values in the places of the keys: that with most common values
    /// among which none differs.
    PropertyRecord::Shape shapeFor(const QVariant *values);

private:
    using Values = std::vector<QVariant>;

    struct Kind
    {
        PropertyRecord::Shape shape;
        /// Among its common values, of which there is at least one.
        int lastDifference;
    };

    /// The first kind among whose common values none differs; null if there is none.
    const Kind *matching(const QVariant *values);
    bool isLearning(bool isMatched) const;
    /// A shape that has more in common with @p values than @p known; null if none can be made.
    PropertyRecord::Shape learn(const QVariant *values, int known);
    void insert(const PropertyRecord::Shape &kind);

    PropertyRecord::Shape m_plain;
    /// Those with most common values first.
    std::vector<Kind> m_kinds;
    /// Of the last elements, in no order.
    std::array<Values, 8> m_recent;
    std::size_t m_nextRecent = 0;
    unsigned int m_elements = 0;
    unsigned int m_madeKinds = 0;
    /// Looks at elements that led to no kind, since the last one.
    unsigned int m_vainLooks = 0;
};
