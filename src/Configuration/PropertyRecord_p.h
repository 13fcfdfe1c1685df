#pragma once

#include "Configuration/ElementProperties.h"

#include <QSharedData>
#include <QStringList>

/// The keys that elements have in common, each with the place of its value.
class PropertyShape : public QSharedData
{
public:
    /// Of keys that came in this order.
    explicit PropertyShape(const QStringList &keys);

    /// False if a key came twice: then there are fewer places than values.
    bool isUsable() const { return m_isUsable; }
    int size() const { return m_places.size(); }

    /// The place of @p key; -1 if it has none.
    int placeOf(const QString &key) const;
    /// What the hash would be that got these keys one after the other, each with its value.
    ElementProperties::Map withValues(const QVariant *values) const;

private:
    static int placeIn(const QVariant &entry)
    {
        return *static_cast<const int *>(entry.constData());
    }

    /// It has the order of a hash with values, and the seed that such a one got when it was made.
    ElementProperties::Map m_places;
    bool m_isUsable;
};

/// What an ElementProperties holds: values in the places of a shape, or a hash.
class PropertyRecord
{
public:
    using Shape = QExplicitlySharedDataPointer<const PropertyShape>;

    /// Makes @p properties hold @p values, which are taken, under the keys of @p shape.
    static void fill(ElementProperties &properties, const Shape &shape, QVariant *values);

    static PropertyRecord *make(const ElementProperties::Map &map);
    static PropertyRecord *copy(const PropertyRecord &record);
    /// Null is passed over.
    static void destroy(PropertyRecord *record);

    bool isMap() const { return !m_shape; }
    const PropertyShape &shape() const { return *m_shape; }
    /// In the places of the shape.
    QVariant *values() { return reinterpret_cast<QVariant *>(this + 1); }
    const QVariant *values() const { return reinterpret_cast<const QVariant *>(this + 1); }
    ElementProperties::Map &map() { return *reinterpret_cast<ElementProperties::Map *>(this + 1); }
    const ElementProperties::Map &map() const
    {
        return *reinterpret_cast<const ElementProperties::Map *>(this + 1);
    }

private:
    Q_DISABLE_COPY(PropertyRecord)

    PropertyRecord() = default;
    ~PropertyRecord() = default;
    static PropertyRecord *makeOfValues(const Shape &shape);

    /// Null where a hash lies behind it instead of values.
    Shape m_shape;
};
