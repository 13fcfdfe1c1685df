#include "Configuration/ElementProperties.h"

#include "Configuration/PropertyKinds_p.h"
#include "Configuration/PropertyRecord_p.h"

#include <new>
#include <utility>

using Map = ElementProperties::Map;

PropertyShape::PropertyShape(const QStringList &keys) : m_keys(keys), m_hasPlainKeys(true)
{
    int place = 0;
    for (const QString &key : keys) {
        m_places.insert(key, place++);
        m_hasPlainKeys = m_hasPlainKeys && !key.isEmpty() && PropertyPath::isPlainKey(key);
    }
    m_isUsable = m_places.size() == keys.size();
    if (keys.size() <= sm_maximumOfMarks) {
        for (const QString &key : keys) {
            m_marks.append(markOf(key));
        }
    }
    findUsualPlaces();
}

void PropertyShape::findUsualPlaces()
{
    for (std::size_t key = 0; key < usualKeyCount; ++key) {
        m_usualPlaces[key] = placeOf(keyText(static_cast<UsualKey>(key)));
    }
}

PropertyShape::PropertyShape(const Pointer &plain, const QVector<int> &commonPlaces,
                             const QVariant *values)
    : PropertyShape(*plain)
{
    m_plain = plain;
    m_commonPlaces = commonPlaces;
    m_hasCommonValues = !commonPlaces.isEmpty();
    m_indices.reserve(size());
    int own = 0;
    for (int place = 0; place < size(); ++place) {
        const int common = m_commonValues.size();
        if (common < commonPlaces.size() && commonPlaces.at(common) == place) {
            m_commonValues.append(values[place]);
            m_indices.append(-1 - common);
        } else {
            m_indices.append(own++);
        }
    }
}

int PropertyShape::placeInMap(QStringView key) const
{
    const auto entry = m_places.constFind(LookupKey(key).text());
    return entry == m_places.cend() ? -1 : placeIn(*entry);
}

Map PropertyShape::withValues(const QVariant *own) const
{
    Map map = m_places;
    for (QVariant &entry : map) {
        entry = *valueAt(placeIn(entry), own);
    }
    return map;
}

// One block holds the record and what lies behind it: a leaf has few bytes beside its values.

PropertyRecord *PropertyRecord::makeOfValues(const Shape &shape)
{
    const auto count = static_cast<std::size_t>(shape->ownSize());
    void *const block = ::operator new(sizeof(PropertyRecord) + count * sizeof(QVariant));
    auto *const record = new (block) PropertyRecord;
    record->m_shape = shape;
    for (std::size_t i = 0; i < count; ++i) {
        new (record->values() + i) QVariant;
    }
    return record;
}

void PropertyRecord::fill(ElementProperties &properties, PropertyKinds &kinds, QVariant *values)
{
    if (!kinds.plain()->isUsable() || !properties.isEmpty()) {
        for (const QString &key : kinds.plain()->keys()) {
            properties[key].swap(*values++);
        }
        return;
    }
    const Shape shape = kinds.shapeFor(values);
    PropertyRecord *const record = makeOfValues(shape);
    for (int place = 0; place < shape->size(); ++place) {
        const int index = shape->ownIndexOf(place);
        if (index >= 0) {
            record->values()[index].swap(values[place]);
        }
    }
    destroy(std::exchange(properties.m_record, record));
}

void PropertyRecord::ownAll(ElementProperties &properties)
{
    PropertyRecord *const former = properties.m_record;
    if (former == nullptr || former->isMap() || !former->shape().hasCommonValues()) {
        return;
    }
    PropertyRecord *const record = makeOfValues(former->shape().plain());
    for (int place = 0; place < record->shape().size(); ++place) {
        record->values()[place] = *former->valueAt(place);
    }
    destroy(std::exchange(properties.m_record, record));
}

PropertyRecord *PropertyRecord::make(const Map &map)
{
    void *const block = ::operator new(sizeof(PropertyRecord) + sizeof(Map));
    auto *const record = new (block) PropertyRecord;
    new (&record->map()) Map(map);
    return record;
}

PropertyRecord *PropertyRecord::copy(const PropertyRecord &record)
{
    if (record.isMap()) {
        return make(record.map());
    }
    PropertyRecord *const copied = makeOfValues(record.m_shape);
    for (int i = 0; i < record.shape().ownSize(); ++i) {
        copied->values()[i] = record.values()[i];
    }
    return copied;
}

void PropertyRecord::destroy(PropertyRecord *record)
{
    if (record == nullptr) {
        return;
    }
    if (record->isMap()) {
        record->map().~Map();
    } else {
        for (int i = 0; i < record->shape().ownSize(); ++i) {
            record->values()[i].~QVariant();
        }
    }
    record->~PropertyRecord();
    ::operator delete(record);
}

ElementProperties::ElementProperties(const Map &properties)
    : m_record(PropertyRecord::make(properties))
{
}

ElementProperties::ElementProperties(const ElementProperties &other)
    : m_record(other.m_record == nullptr ? nullptr : PropertyRecord::copy(*other.m_record))
{
}

ElementProperties &ElementProperties::operator=(const ElementProperties &other)
{
    ElementProperties copied(other);
    swap(copied);
    return *this;
}

ElementProperties::~ElementProperties()
{
    PropertyRecord::destroy(m_record);
}

Map ElementProperties::toMap() const
{
    if (m_record == nullptr) {
        return {};
    }
    return m_record->isMap() ? m_record->map() : m_record->shape().withValues(m_record->values());
}

int ElementProperties::size() const
{
    if (m_record == nullptr) {
        return 0;
    }
    return m_record->isMap() ? m_record->map().size() : m_record->shape().size();
}

const QVariant *ElementProperties::get(const QString &key) const
{
    if (m_record == nullptr) {
        return nullptr;
    }
    if (m_record->isMap()) {
        const auto entry = m_record->map().constFind(key);
        return entry == m_record->map().cend() ? nullptr : &*entry;
    }
    const int place = m_record->shape().placeOf(key);
    return place < 0 ? nullptr : m_record->valueAt(place);
}

QVariant *ElementProperties::get(const QString &key)
{
    if (m_record == nullptr) {
        return nullptr;
    }
    if (m_record->isMap()) {
        // Not by the look-up above: a hash that somebody else holds too is copied first.
        Map &map = m_record->map();
        const auto entry = map.find(key);
        return entry == map.end() ? nullptr : &*entry;
    }
    const int place = m_record->shape().placeOf(key);
    if (place < 0) {
        return nullptr;
    }
    // All of them: a place that is asked for to be written stays where it is.
    PropertyRecord::ownAll(*this);
    return m_record->values() + place;
}

QVariant ElementProperties::value(const QString &key, const QVariant &missing) const
{
    const QVariant *const value = get(key);
    return value == nullptr ? missing : *value;
}

Map &ElementProperties::map()
{
    return const_cast<Map &>(std::as_const(*this).map());
}

const Map &ElementProperties::map() const
{
    if (m_record == nullptr || !m_record->isMap()) {
        PropertyRecord::destroy(std::exchange(m_record, PropertyRecord::make(toMap())));
    }
    return m_record->map();
}
