#include "Companion/JsonTextScan_p.h"
#include "Companion/JsonText_p.h"
#include "Companion/Utf8Character_p.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <algorithm>
#include <cstring>

namespace {

uint hexNumber(const char *digits)
{
    return QByteArray::fromRawData(digits, 4).toUInt(nullptr, 16);
}

/// The character behind the backslash at @p at, which moves behind it. What Qt gives no meaning stands
/// for itself.
uint unescaped(const char *&at)
{
    // As Qt does: where a char has a sign, a byte from 0x80 on becomes a number far behind Unicode.
    // NOLINTNEXTLINE(bugprone-signed-char-misuse): that is what is wanted.
    const uint escaped = static_cast<uint>(at[1]);
    at += 2;
    switch (escaped) {
    case 'b': return '\b';
    case 'f': return '\f';
    case 'n': return '\n';
    case 'r': return '\r';
    case 't': return '\t';
    case 'u': at += 4; return hexNumber(at - 4);
    default: return escaped;
    }
}

uint nextCharacter(const char *&at, const char *end)
{
    if (*at == '\\') {
        return unescaped(at);
    }
    const int size = static_cast<uchar>(*at) < 0x80 ? 1 : Utf8Character::sizeOf(at, end);
    at += size;
    return size == 1 ? static_cast<uint>(at[-1]) : Utf8Character::codePoint(at - size, size);
}

QString decoded(const char *at, int size)
{
    const char *const end = at + size;
    QString text;
    text.reserve(size);
    while (at < end) {
        const uint character = nextCharacter(at, end);
        if (QChar::requiresSurrogates(character)) {
            text.append(QChar(QChar::highSurrogate(character)));
            text.append(QChar(QChar::lowSurrogate(character)));
        } else {
            text.append(QChar(static_cast<ushort>(character)));
        }
    }
    return text;
}

int compareBytes(const char *left, int leftSize, const char *right, int rightSize)
{
    const int order = std::memcmp(left, right,
                                  static_cast<std::size_t>(std::min(leftSize, rightSize)));
    return order != 0 ? order : leftSize - rightSize;
}

} // namespace

bool JsonText::read(const QByteArray &text)
{
    m_text = text;
    m_entries.clear();
    JsonTextScan scan(m_text, m_entries);
    const bool isTaken = scan.scan();
    m_error = scan.error();
    m_faultOffset = scan.faultOffset();
    return isTaken;
}

void JsonText::clear()
{
    constexpr std::size_t mostEntries = 262144; // 4 MB
    m_text.clear();
    m_entries.clear();
    if (m_entries.capacity() > mostEntries) {
        // An empty list in braces would be copied into the block.
        m_entries = std::vector<Entry>();
    }
}

QString JsonText::Value::toString() const
{
    if (isPlainText()) {
        return plainText();
    }
    return entry().isEscaped ? decoded(bytes(), size()) : QString::fromUtf8(bytes(), size());
}

bool JsonText::Value::isKey(QLatin1String key) const
{
    return entry().isEscaped ? decoded(bytes(), size()) == key : plainText() == key;
}

QVariant JsonText::Value::toVariant() const
{
    switch (kind()) {
    case Kind::Null: break;
    case Kind::Bool: return toBool();
    case Kind::Integer: return toInteger();
    case Kind::Double: return toDouble();
    case Kind::Text: return toString();
    case Kind::Array: return toList();
    case Kind::Object: return toMap();
    }
    return QVariant::fromValue(nullptr);
}

QVariantList JsonText::Value::toList() const
{
    QVariantList list;
    for (Elements element(*this); element.isValid(); element.next()) {
        list.append(element.value().toVariant());
    }
    return list;
}

QVariantMap JsonText::Value::toMap() const
{
    QVariantMap map;
    for (Members member(*this); member.isValid(); member.next()) {
        map.insert(map.cend(), member.key().toString(), member.value().toVariant());
    }
    return map;
}

QJsonValue JsonText::Value::toJsonValue() const
{
    switch (kind()) {
    case Kind::Null: break;
    case Kind::Bool: return toBool();
    case Kind::Integer: return toInteger();
    case Kind::Double: return toDouble();
    case Kind::Text: {
        // Qt keeps the byte order mark in front of a text, and drops it from each copy: so the text as it
        // stands.
        const QByteArray text = "[\"" + QByteArray(bytes(), size()) + "\"]";
        return isPlainText() ? toString() : QJsonDocument::fromJson(text).array().at(0);
    }
    case Kind::Array: return QJsonDocument::fromJson(wholeText()).array();
    case Kind::Object: return QJsonDocument::fromJson(wholeText()).object();
    }
    return QJsonValue::Null;
}

/// An array or object from bracket to bracket, which is a text of its own.
QByteArray JsonText::Value::wholeText() const
{
    return QByteArray::fromRawData(bytes(), static_cast<int>(entry().extent.end) - offset());
}

JsonText::Value JsonText::Value::member(QLatin1String key) const
{
    Value found;
    for (quint32 index = m_index + 1; index != nextIndex();) {
        const Value value = at(index + 1);
        if (at(index).isKey(key)) {
            if (found.isValid()) {
                return memberOfSeveral(key);
            }
            found = value;
        }
        index = value.nextIndex();
    }
    return found;
}

/// The one that QJsonObject keeps of several members with the same key.
JsonText::Value JsonText::Value::memberOfSeveral(QLatin1String key) const
{
    Members member(*this);
    while (!member.key().isKey(key)) {
        member.next();
    }
    return member.value();
}

JsonText::Members::Members(const Value &object)
    : m_key(object.at(object.m_index + 1))
    , m_end(object.nextIndex())
{
    if (!isValid()) {
        return;
    }
    switch (object.entry().order) {
    case Order::AsWritten: return;
    case Order::ByBytes: sort(); break;
    case Order::AsToolkit: sortAsToolkit(); break;
    }
    next();
}

void JsonText::Members::sort()
{
    for (quint32 index = m_key.m_index; index != m_end; index = m_key.at(index + 1).nextIndex()) {
        m_order.append(index);
    }
    const auto compare = [this](quint32 left, quint32 right) {
        const Value first = m_key.at(left);
        const Value second = m_key.at(right);
        return compareBytes(first.bytes(), first.size(), second.bytes(), second.size());
    };
    std::sort(m_order.begin(), m_order.end(),
              [&](quint32 left, quint32 right) { return compare(left, right) < 0; });
    const auto twice = std::adjacent_find(
        m_order.cbegin(), m_order.cend(),
        [&](quint32 left, quint32 right) { return compare(left, right) == 0; });
    if (twice != m_order.cend()) {
        m_order.clear();
        sortAsToolkit();
    }
}

/// Of a key that stands twice the toolkit takes the last value only in a small object, as its sorting
/// is not stable. Between escaped keys and others it has three ways to compare, which contradict each
/// other beyond U+D7FF, and one of them ends at a zero byte. So it is asked itself, with an object of the
/// same keys that holds their indices.
void JsonText::Members::sortAsToolkit()
{
    QByteArray json(1, '{');
    for (quint32 index = m_key.m_index; index != m_end; index = m_key.at(index + 1).nextIndex()) {
        const Value key = m_key.at(index);
        json += json.size() == 1 ? "\"" : ",\"";
        json.append(key.bytes(), key.size());
        json += "\":" + QByteArray::number(index);
    }
    const QJsonObject indices = QJsonDocument::fromJson(json + '}').object();
    for (const auto &index : indices) {
        m_order.append(static_cast<quint32>(index.toDouble()));
    }
}
