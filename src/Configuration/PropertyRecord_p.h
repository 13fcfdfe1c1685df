#pragma once

#include "Configuration/ElementProperties.h"
#include "Configuration/LookupKey_p.h"
#include "Configuration/PropertyPath_p.h"

#include <QSharedData>
#include <QStringList>
#include <QStringView>
#include <QVarLengthArray>

#include <cstring>

/// The keys that elements have in common, each with the place of its value.
class PropertyShape : public QSharedData
{
public:
    /// Of keys that came in this order.
    explicit PropertyShape(const QStringList &keys);

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
    /// What the hash would be that got these keys one after the other, each with its value.
    ElementProperties::Map withValues(const QVariant *values) const;

private:
    /// Beyond that many keys the hash finds one sooner.
    static constexpr int maximumOfMarks = 24;

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

    QStringList m_keys;
    /// Of the keys at the same places; empty if there are many.
    QVarLengthArray<quint64, maximumOfMarks> m_marks;
    /// It has the order of a hash with values, and the seed that such a one got when it was made.
    ElementProperties::Map m_places;
    bool m_isUsable;
    bool m_hasPlainKeys;
};

/// What an ElementProperties holds: values in the places of a shape, or a hash.
class PropertyRecord
{
public:
    using Shape = QExplicitlySharedDataPointer<const PropertyShape>;

    /// Puts @p values, which are taken, under the keys of @p shape into @p properties. These get the shape
    /// if there were none.
    static void fill(ElementProperties &properties, const Shape &shape, QVariant *values);

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
        return place < 0 ? nullptr : record->values() + place;
    }
    /// Whether @p path is answered by one look-up in the places of a shape: @p value is then what it leads
    /// to, null for a key that is not there.
    static bool answers(const ElementProperties &properties, const QString &path, QVariant *&value)
    {
        PropertyRecord *const record = properties.m_record;
        if (record == nullptr || record->isMap() || !record->shape().hasPlainKeys()) {
            return false;
        }
        const int place = record->shape().placeOf(path);
        value = place < 0 ? nullptr : record->values() + place;
        return place >= 0 || (!path.isEmpty() && PropertyPath::isPlainKey(path));
    }

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
