#pragma once

#include <QByteArray>
#include <QJsonParseError>
#include <QJsonValue>
#include <QLatin1String>
#include <QString>
#include <QVarLengthArray>
#include <QVariant>

#include <vector>

/// A JSON text that is visited where it stands, instead of being copied into a document first.
///
/// Every answer is the one that QJsonDocument::fromJson() of Qt 5.15 gives for the same bytes: which
/// texts are refused, with which error at which offset, what the values are, and in which order an
/// object has its members. The whole text is looked through before any of it can be visited, so nobody
/// has to take back what he made of a broken one.
///
/// What is kept is 16 bytes a value and a key, in one block that the next read() uses again. Texts stay
/// where they are and are decoded for who asks. Reading takes the stack of Qt's own parser, some hundred
/// bytes for each of at most 1,024 levels. Not thread-safe.
class JsonText
{
public:
    enum class Kind : quint8 { Null, Bool, Integer, Double, Text, Array, Object };

    class Value;
    class Elements;
    class Members;
    class WrittenMembers;

    /// Takes in @p text, which is shared and not copied, in place of the one before. False if it is
    /// refused, and error() tells why. No value of the text before may be used any more.
    bool read(const QByteArray &text);

    /// Forgets the text, of which no value may be used any more, and keeps its block for the next one
    /// unless it is a large one.
    void clear();

    /// As fromJson() sets it: no error at offset 0 for a text that was taken.
    const QJsonParseError &error() const { return m_error; }
    /// Of the first byte of what is at fault in a text that was refused. Qt's offset may be one behind it, or
    /// far behind.
    int faultOffset() const { return m_faultOffset; }

    /// The array or object that the text is. Only after read() returned true.
    Value root() const;

    /// How the members of an object come into the order of QJsonObject.
    enum class Order : quint8 {
        AsWritten, ///< they stand in it
        ByBytes,   ///< their keys have to be compared
        AsToolkit  ///< a key is escaped, or the text has a zero byte: it cannot be told from bytes
    };

    /// What is kept of one value or key.
    struct Entry
    {
        /// Where the parts of an array or object end.
        struct Extent
        {
            quint32 nextIndex; ///< of the first entry that no longer belongs to it
            quint32 end;       ///< offset behind the closing bracket
        };

        /// The kind tells which of them holds.
        union {
            qint64 integer = 0; ///< an integer; whether a bool is true; the size of a text in bytes
            double number;
            Extent extent;
        };
        quint32 offset = 0; ///< of the first byte, which of a text is the one behind the quote
        Kind kind = Kind::Null;
        bool isAscii = false;           ///< a text without escapes in which bytes are characters
        bool isEscaped = false;         ///< a text with a backslash in it
        Order order = Order::AsWritten; ///< of an object
    };
    static_assert(sizeof(Entry) == 16);

private:
    QByteArray m_text;
    std::vector<Entry> m_entries;
    QJsonParseError m_error{0, QJsonParseError::NoError};
    int m_faultOffset = 0;
};

/// One value of a JsonText, or a key of an object, which is a text. Valid as long as its JsonText lives
/// and reads nothing else. Made to be passed by value.
class JsonText::Value
{
public:
    /// No value: what a search found nothing for.
    Value() = default;

    bool isValid() const { return m_text != nullptr; }
    Kind kind() const { return entry().kind; }
    bool isText() const { return kind() == Kind::Text; }
    bool isArray() const { return kind() == Kind::Array; }
    bool isObject() const { return kind() == Kind::Object; }

    /// Where it begins in the text: at the first digit, letter or bracket, and of a text behind its quote.
    int offset() const { return static_cast<int>(entry().offset); }

    bool toBool() const { return entry().integer != 0; }
    qint64 toInteger() const { return entry().integer; }
    /// Of any number; an integer is converted.
    double toDouble() const;

    /// Whether plainText() shows the whole text: nothing is escaped, and all of it is ASCII.
    bool isPlainText() const { return entry().isAscii; }
    /// The text as it stands between its quotes.
    QLatin1String plainText() const;
    /// The text as a string of its own, as Qt decodes it.
    QString toString() const;
    /// Whether QJsonObject would find the member with this key under @p key, which is ASCII without a zero. Not always
    /// what toString() suggests: that drops a byte order mark in front.
    bool isKey(QLatin1String key) const;

    /// QJsonValue::toVariant() of the value, lists and maps with all below them.
    QVariant toVariant() const;
    /// The value as fromJson() holds it.
    QJsonValue toJsonValue() const;

    /// What is behind @p key, which is ASCII without a zero, in an object; an invalid value if it has no such member.
    Value member(QLatin1String key) const;

private:
    friend class JsonText;
    friend class JsonText::Elements;
    friend class JsonText::Members;
    friend class JsonText::WrittenMembers;

    Value(const JsonText *text, quint32 index) : m_text(text), m_index(index) { }

    const Entry &entry() const { return m_text->m_entries[m_index]; }
    const char *bytes() const { return m_text->m_text.constData() + entry().offset; }
    int size() const { return static_cast<int>(entry().integer); }
    Value at(quint32 index) const { return {m_text, index}; }
    quint32 nextIndex() const;
    Value memberOfSeveral(QLatin1String key) const;
    QByteArray wholeText() const;
    QVariantList toList() const;
    QVariantMap toMap() const;

    const JsonText *m_text = nullptr;
    quint32 m_index = 0;
};

/// Goes through the values of an array.
///
///     for (JsonText::Elements element(array); element.isValid(); element.next()) ...
class JsonText::Elements
{
public:
    explicit Elements(const Value &array)
        : m_value(array.at(array.m_index + 1))
        , m_end(array.nextIndex())
    {
    }

    bool isValid() const { return m_value.m_index != m_end; }
    void next() { m_value.m_index = m_value.nextIndex(); }
    const Value &value() const { return m_value; }

private:
    Value m_value;
    quint32 m_end;
};

/// Goes through the members of an object as QJsonObject does: in its order, each key once and with the
/// value that Qt keeps. That is the last one, but for objects of more than 16 members, where it may be
/// any of them.
///
/// Where the text has that order already, as everything that Qt wrote, it is followed as it stands.
/// Else the members are put in order first, by an index of 4 bytes each.
class JsonText::Members
{
public:
    explicit Members(const Value &object);

    bool isValid() const { return m_key.m_index != m_end; }
    void next();
    /// A text, whose toString() is the key.
    const Value &key() const { return m_key; }
    Value value() const { return m_key.at(m_key.m_index + 1); }

private:
    void sort();
    void sortAsToolkit();

    Value m_key;
    quint32 m_end;
    /// Of the keys, if their order had to be made.
    QVarLengthArray<quint32, 32> m_order;
    int m_next = 0;
};

/// Goes through the members of an object as they are written: in the order of the text, and each of those
/// with the same key.
class JsonText::WrittenMembers
{
public:
    explicit WrittenMembers(const Value &object)
        : m_key(object.at(object.m_index + 1))
        , m_end(object.nextIndex())
    {
    }

    bool isValid() const { return m_key.m_index != m_end; }
    void next() { m_key.m_index = value().nextIndex(); }
    /// A text, whose toString() is the key.
    const Value &key() const { return m_key; }
    Value value() const { return m_key.at(m_key.m_index + 1); }

private:
    Value m_key;
    quint32 m_end;
};

inline JsonText::Value JsonText::root() const
{
    return {this, 0};
}

inline double JsonText::Value::toDouble() const
{
    return kind() == Kind::Double ? entry().number : static_cast<double>(entry().integer);
}

inline QLatin1String JsonText::Value::plainText() const
{
    return QLatin1String(bytes(), size());
}

inline quint32 JsonText::Value::nextIndex() const
{
    return isArray() || isObject() ? entry().extent.nextIndex : m_index + 1;
}

inline void JsonText::Members::next()
{
    if (m_order.isEmpty()) {
        m_key.m_index = value().nextIndex();
        return;
    }
    m_key.m_index = m_next < m_order.size() ? m_order[m_next++] : m_end;
}
