#pragma once

#include "Companion/TesselExport.h"

#include <QHash>
#include <QList>
#include <QString>
#include <QVariant>

/// The properties of one element, used like the QHash<QString, QVariant> that they were made from.
///
/// Elements beside each other mostly have the same keys. As long as an element has the keys with which a
/// description made it, it keeps its values alone, and shares the keys with its siblings. It gets a
/// hash of its own when a key is added or removed, or when somebody asks for an iterator: with the
/// entries in the order in which they would stand if it had been one from the beginning.
///
/// As with a hash, references and iterators hold until the keys change. Not thread-safe: a hash may be
/// made by an operation that only reads.
class TESSEL_EXPORT ElementProperties
{
public:
    using Map = QHash<QString, QVariant>;
    using iterator = Map::iterator;
    using const_iterator = Map::const_iterator;

    ElementProperties() = default;
    ElementProperties(const Map &properties); // NOLINT(google-explicit-constructor): stands for it
    ElementProperties(const ElementProperties &other);
    ElementProperties &operator=(const ElementProperties &other);
    ~ElementProperties();

    /// A hash with the same entries.
    Map toMap() const;
    operator Map() const { return toMap(); } // NOLINT(google-explicit-constructor): stands for it

    int size() const;
    int count() const { return size(); }
    bool isEmpty() const { return size() == 0; }
    bool contains(const QString &key) const { return get(key) != nullptr; }
    /// The value under @p key, which stays here until it is written; null if there is none.
    const QVariant *get(const QString &key) const;
    /// The same to be written. Never adds a key.
    QVariant *get(const QString &key);
    QVariant value(const QString &key, const QVariant &missing = QVariant()) const;
    QVariant operator[](const QString &key) const { return value(key); }
    bool operator==(const ElementProperties &other) const { return toMap() == other.toMap(); }
    bool operator!=(const ElementProperties &other) const { return !(*this == other); }

    QList<QString> keys() const { return map().keys(); }
    QList<QVariant> values() const { return map().values(); }
    const_iterator find(const QString &key) const { return map().constFind(key); }
    const_iterator constFind(const QString &key) const { return map().constFind(key); }
    const_iterator begin() const { return map().cbegin(); }
    const_iterator end() const { return map().cend(); }
    const_iterator cbegin() const { return map().cbegin(); }
    const_iterator cend() const { return map().cend(); }
    const_iterator constBegin() const { return map().cbegin(); }
    const_iterator constEnd() const { return map().cend(); }

    QVariant &operator[](const QString &key) { return map()[key]; }
    iterator find(const QString &key) { return map().find(key); }
    iterator begin() { return map().begin(); }
    iterator end() { return map().end(); }
    iterator erase(const_iterator entry) { return map().erase(entry); }
    iterator insert(const QString &key, const QVariant &value) { return map().insert(key, value); }
    int remove(const QString &key) { return map().remove(key); }
    QVariant take(const QString &key) { return map().take(key); }
    void clear() { map().clear(); }
    void swap(ElementProperties &other) { qSwap(m_record, other.m_record); }

    /// The hash that it is from now on.
    Map &map();
    const Map &map() const;

private:
    friend class PropertyRecord;

    /// Null as long as there are no properties.
    mutable class PropertyRecord *m_record = nullptr;
};
