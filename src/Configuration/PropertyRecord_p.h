#pragma once

#include "Configuration/ElementProperties.h"
#include "Configuration/LookupKey_p.h"
#include "Configuration/PropertyPath_p.h"
#include "Configuration/UsualKey_p.h"

#include <QSharedData>
#include <QStringList>
#include <QStringView>
#include <QVarLengthArray>
#include <QVector>

#include <array>
#include <cstring>
#include <functional>

/// The keys that elements have in common, each with the place of its value, and the values that all of
/// these elements have under some of the keys.
class PropertyShape : public QSharedData
{
public:
    using Pointer = QExplicitlySharedDataPointer<const PropertyShape>;

    /// Of keys that came in this order.
    explicit PropertyShape(const QStringList &keys);
    /// With the keys of @p plain, and with the values at @p commonPlaces, which ascend, of @p values.
    PropertyShape(const Pointer &plain, const QVector<int> &commonPlaces, const QVariant *values);

    /// False if a key came twice: then there are fewer places than values.
    bool isUsable() const { return m_isUsable; }
    int size() const { return m_keys.size(); }
    /// In the order in which they came.
    const QStringList &keys() const { return m_keys; }
    /// Whether no key has characters that have a meaning in the path of a property. What is found by a
    /// whole path is then the value that the path leads to.
    bool hasPlainKeys() const { return m_hasPlainKeys; }

    /// The place of @p key; -1 if it has none.
    int placeOf(QStringView key) const
    {
        return m_marks.isEmpty() ? placeInMap(key) : placeByMarks(key);
    }
    /// The same for a key that was looked for when the shape was made.
    int placeOf(UsualKey key) const { return m_usualPlaces[static_cast<std::size_t>(key)]; }
    /// What the hash would be that got these keys one after the other, each with its value.
    ElementProperties::Map withValues(const QVariant *own) const;

    /// The shape with the same keys and without common values; null if it is this one.
    const Pointer &plain() const { return m_plain; }
    /// The places of the common values.
    const QVector<int> &commonPlaces() const { return m_commonPlaces; }
    const QVector<QVariant> &commonValues() const { return m_commonValues; }
    /// How many values an element holds itself, in the order of their places.
    int ownSize() const { return size() - m_commonPlaces.size(); }
    bool hasCommonValues() const { return m_hasCommonValues; }
    /// Of the value at @p place among those; negative if it is a common one.
    int ownIndexOf(int place) const { return m_hasCommonValues ? m_indices.at(place) : place; }
    /// The value at @p place of an element that holds @p own itself.
    const QVariant *valueAt(int place, const QVariant *own) const
    {
        if (!m_hasCommonValues) {
            return own + place;
        }
        const int index = m_indices.constData()[place];
        return index < 0 ? m_commonValues.constData() + (-1 - index) : own + index;
    }

private:
    /// Beyond that many keys the hash finds one sooner.
    static constexpr int sm_maximumOfMarks = 24;

    /// Size, first, middle and last character: keys that stand beside each other rarely have all of
    /// them in common.
    static quint64 markOf(QStringView key)
    {
        const auto size = static_cast<quint64>(key.size());
        if (size == 0) {
            return 0;
        }
        const QChar *const text = key.data();
        const auto at = [text](quint64 index) { return quint64(text[index].unicode()); };
        return (size << 48) | (at(0) << 32) | (at(size / 2) << 16) | at(size - 1);
    }
    int placeByMarks(QStringView key) const
    {
        const quint64 mark = markOf(key);
        for (int place = 0; place < m_marks.size(); ++place) {
            if (m_marks.data()[place] == mark && isKey(place, key)) {
                return place;
            }
        }
        return -1;
    }
    bool isKey(int place, QStringView key) const
    {
        const QString &own = m_keys.at(place);
        return own.size() == key.size()
               && std::memcmp(own.constData(), key.data(),
                              static_cast<std::size_t>(own.size()) * sizeof(QChar))
                      == 0;
    }
    static int placeIn(const QVariant &entry)
    {
        return *static_cast<const int *>(entry.constData());
    }
    int placeInMap(QStringView key) const;
    void findUsualPlaces();

    QStringList m_keys;
    /// Of the keys at the same places; empty if there are many.
    QVarLengthArray<quint64, sm_maximumOfMarks> m_marks;
    /// It has the order of a hash with values, and the seed that such a one got when it was made.
    ElementProperties::Map m_places;
    std::array<int, usualKeyCount> m_usualPlaces{};
    bool m_isUsable;
    bool m_hasPlainKeys;
    bool m_hasCommonValues = false;
    Pointer m_plain;
    QVector<int> m_commonPlaces;
    QVector<QVariant> m_commonValues;
    /// Where the value of each place is: at this index of the own values, or, from -1 downward, of the
    /// common ones. Empty if all are own.
    QVector<int> m_indices;
};

class PropertyKinds;

/// What an ElementProperties holds: values in the places of a shape, or a hash.
class PropertyRecord
{
public:
    using Shape = PropertyShape::Pointer;

    /// Puts @p values, which are taken, under the keys of @p kinds into @p properties. These get a shape if
    /// there were none.
    static void fill(ElementProperties &properties, PropertyKinds &kinds, QVariant *values);
    /// Lets @p properties hold all of their values themselves, if they have a shape.
    static void ownAll(ElementProperties &properties);

    static PropertyRecord *make(const ElementProperties::Map &map);
    static PropertyRecord *copy(const PropertyRecord &record);
    /// Null is passed over.
    static void destroy(PropertyRecord *record);

    /// The value under @p key; null if there is none.
    static const QVariant *valueUnder(const ElementProperties &properties, QStringView key)
    {
        const PropertyRecord *const record = properties.m_record;
        if (record == nullptr || record->isMap()) {
            return properties.get(LookupKey(key).text());
        }
        const int place = record->shape().placeOf(key);
        return place < 0 ? nullptr : record->valueAt(place);
    }
    /// The same for a key whose place is known already.
    static const QVariant *valueUnder(const ElementProperties &properties, UsualKey key)
    {
        const PropertyRecord *const record = properties.m_record;
        if (record == nullptr || record->isMap()) {
            return properties.get(keyText(key));
        }
        const int place = record->shape().placeOf(key);
        return place < 0 ? nullptr : record->valueAt(place);
    }
    /// Tells the processor that @p properties are about to be read.
    static void prefetch(const ElementProperties &properties)
    {
        __builtin_prefetch(properties.m_record);
    }
    /// Whether @p path is answered by one look-up in the places of a shape: @p value is then what it leads
    /// to, null for a key that is not there.
    static bool answers(const ElementProperties &properties, const QString &path,
                        const QVariant *&value)
    {
        const PropertyRecord *const record = properties.m_record;
        if (record == nullptr || record->isMap() || !record->shape().hasPlainKeys()) {
            return false;
        }
        const int place = record->shape().placeOf(path);
        value = place < 0 ? nullptr : record->valueAt(place);
        return place >= 0 || (!path.isEmpty() && PropertyPath::isPlainKey(path));
    }

    /// The place of @p value, which answers() has found, to be written; null if it is a common one.
    static QVariant *placeToWrite(ElementProperties &properties, const QVariant *value)
    {
        PropertyRecord *const record = properties.m_record;
        if (!record->shape().hasCommonValues()) {
            return const_cast<QVariant *>(value);
        }
        const auto isLess = std::less<>();
        const QVariant *const own = record->values();
        const bool isOwn = !isLess(value, own) && isLess(value, own + record->shape().ownSize());
        return isOwn ? const_cast<QVariant *>(value) : nullptr;
    }

    bool isMap() const { return !m_shape; }
    const PropertyShape &shape() const { return *m_shape; }
    /// At a place of the shape.
    const QVariant *valueAt(int place) const { return shape().valueAt(place, values()); }
    /// Those that are no common ones of the shape.
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
