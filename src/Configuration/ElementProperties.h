#pragma once

#include "Companion/TesselExport.h"

#include <QHash>
#include <QList>
#include <QString>
#include <QVariant>

/// The properties of one element, used like the QHash<QString, QVariant> that they were made from.
///
/// As long as an element has the keys with which a description made it, it shares them with its siblings
/// and holds values alone; those that several siblings have in common are shared until one is written. It
/// gets a hash of its own when a key is added or removed, or when somebody asks for an iterator: with the
/// entries in the order in which they would stand if it had been one from the beginning.
///
/// As with a hash, references and iterators hold until the keys change; what was got to be read alone, until
/// a value is written. Not thread-safe: a hash may be made by an operation that only reads.
class TESSEL_EXPORT ElementProperties
{
public:
    /// The hash that it stands for.
    using Map = QHash<QString, QVariant>;
    /// Of the hash.
    using iterator = Map::iterator;
    /// Of the hash.
    using const_iterator = Map::const_iterator;

    ElementProperties() = default;
    /// With the entries of a hash.
    ElementProperties(const Map &properties); // NOLINT(google-explicit-constructor): stands for it
    /// A copy shares the keys.
    ElementProperties(const ElementProperties &other);
    /// A copy shares the keys.
    ElementProperties &operator=(const ElementProperties &other);
    ~ElementProperties();

    /// A hash with the same entries.
    Map toMap() const;
    /// As toMap().
    operator Map() const { return toMap(); } // NOLINT(google-explicit-constructor): stands for it

    /// How many properties there are.
    int size() const;
    /// As size().
    int count() const { return size(); }
    /// Whether there are none.
    bool isEmpty() const { return size() == 0; }
    /// Whether there is one under @p key.
    bool contains(const QString &key) const { return get(key) != nullptr; }
    /// The value under @p key, which stays here until it is written; null if there is none.
    const QVariant *get(const QString &key) const;
    /// The same to be written. Never adds a key.
    QVariant *get(const QString &key);
    /// The value under @p key, or @p missing.
    QVariant value(const QString &key, const QVariant &missing = QVariant()) const;
    /// The value under @p key, or an invalid one.
    QVariant operator[](const QString &key) const { return value(key); }
    /// Equal keys with equal values, in whatever order.
    bool operator==(const ElementProperties &other) const { return toMap() == other.toMap(); }
    /// Not equal.
    bool operator!=(const ElementProperties &other) const { return !(*this == other); }

    /// All keys, in the order of the hash.
    QList<QString> keys() const { return map().keys(); }
    /// All values, in the order of the hash.
    QList<QVariant> values() const { return map().values(); }
    /// The entry under @p key, or end().
    const_iterator find(const QString &key) const { return map().constFind(key); }
    /// The entry under @p key, or cend().
    const_iterator constFind(const QString &key) const { return map().constFind(key); }
    /// The first entry.
    const_iterator begin() const { return map().cbegin(); }
    /// Behind the last entry.
    const_iterator end() const { return map().cend(); }
    /// The first entry.
    const_iterator cbegin() const { return map().cbegin(); }
    /// Behind the last entry.
    const_iterator cend() const { return map().cend(); }
    /// The first entry.
    const_iterator constBegin() const { return map().cbegin(); }
    /// Behind the last entry.
    const_iterator constEnd() const { return map().cend(); }

    /// The value under @p key, which is added if there is none.
    QVariant &operator[](const QString &key) { return map()[key]; }
    /// The entry under @p key, or end().
    iterator find(const QString &key) { return map().find(key); }
    /// The first entry.
    iterator begin() { return map().begin(); }
    /// Behind the last entry.
    iterator end() { return map().end(); }
    /// Removes an entry. Gives the next one.
    iterator erase(const_iterator entry) { return map().erase(entry); }
    /// Puts @p value under @p key, in place of what is there.
    iterator insert(const QString &key, const QVariant &value) { return map().insert(key, value); }
    /// Removes what is under @p key. Says how many entries that were.
    int remove(const QString &key) { return map().remove(key); }
    /// Removes what is under @p key and gives it.
    QVariant take(const QString &key) { return map().take(key); }
    /// Removes all.
    void clear() { map().clear(); }
    /// Exchanges the contents.
    void swap(ElementProperties &other) { qSwap(m_record, other.m_record); }

    /// The hash that it is from now on.
    Map &map();
    /// The same to be read.
    const Map &map() const;

private:
    friend class PropertyRecord;

    /// Null as long as there are no properties.
    mutable class PropertyRecord *m_record = nullptr;
};
