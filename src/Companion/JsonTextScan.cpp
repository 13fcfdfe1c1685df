#include "Companion/JsonNumber_p.h"
#include "Companion/JsonTextScan_p.h"
#include "Companion/Utf8Character_p.h"

#include <QtAlgorithms>
#include <QtEndian>

#include <algorithm>
#include <cstring>

namespace {

constexpr int maximumDepth = 1024;

constexpr quint64 ones = Q_UINT64_C(0x0101010101010101);
constexpr quint64 highBits = ones * 0x80;

/// Marks the highest bit of each byte that is @p byte; of those above the lowest one that is, perhaps
/// also of others.
quint64 marksOf(quint64 bytes, uchar byte)
{
    const quint64 difference = bytes ^ (ones * byte);
    return (difference - ones) & ~difference & highBits;
}

bool isHexDigit(char character)
{
    return (character >= '0' && character <= '9') || (character >= 'a' && character <= 'f')
           || (character >= 'A' && character <= 'F');
}

} // namespace

JsonTextScan::JsonTextScan(const QByteArray &text, std::vector<JsonText::Entry> &entries)
    : m_begin(text.constData())
    , m_end(m_begin + text.size())
    , m_at(m_begin)
    , m_entries(entries)
    , m_hasZero(std::memchr(m_begin, '\0', static_cast<std::size_t>(text.size())) != nullptr)
{
}

bool JsonTextScan::scan()
{
    skipByteOrderMark();
    const char token = nextToken();
    if (token != '[' && token != '{') {
        return failAt(placeOf(token), QJsonParseError::IllegalValue);
    }
    if (!(token == '[' ? scanArray() : scanObject())) {
        return false;
    }
    return !skipSpace() || fail(QJsonParseError::GarbageAtEnd);
}

/// Where nothing was passed that is at fault.
bool JsonTextScan::fail(QJsonParseError::ParseError error)
{
    return failAt(std::min(m_at, m_end), error);
}

bool JsonTextScan::failAt(const char *fault, QJsonParseError::ParseError error)
{
    m_error.error = error;
    m_error.offset = static_cast<int>(m_at - m_begin);
    m_faultOffset = static_cast<int>(fault - m_begin);
    return false;
}

void JsonTextScan::skipByteOrderMark()
{
    // Alone it is no such mark.
    if (m_end - m_at > 3 && std::memcmp(m_at, "\xef\xbb\xbf", 3) == 0) {
        m_at += 3;
    }
}

/// False if nothing follows.
bool JsonTextScan::skipSpace()
{
    while (m_at < m_end && (*m_at == ' ' || *m_at == '\t' || *m_at == '\n' || *m_at == '\r')) {
        ++m_at;
    }
    return m_at < m_end;
}

/// The next byte that is no space, which is passed; 0 at the end.
char JsonTextScan::nextToken()
{
    return skipSpace() ? *m_at++ : '\0';
}

/// Of what nextToken() gave just now.
const char *JsonTextScan::placeOf(char token) const
{
    return token != '\0' ? m_at - 1 : m_at;
}

quint32 JsonTextScan::append(Kind kind, const char *at)
{
    Entry &entry = m_entries.emplace_back();
    entry.offset = static_cast<quint32>(at - m_begin);
    entry.kind = kind;
    return static_cast<quint32>(m_entries.size() - 1);
}

/// Ends the array or object @p index, whose bracket was just passed.
void JsonTextScan::close(quint32 index)
{
    --m_depth;
    m_entries[index].extent = {static_cast<quint32>(m_entries.size()),
                               static_cast<quint32>(m_at - m_begin)};
}

bool JsonTextScan::scanValue()
{
    switch (*m_at++) {
    case '"': return scanText();
    case '{': return scanObject();
    case '[': return scanArray();
    case 't': return scanWord("rue", Kind::Bool, true);
    case 'f': return scanWord("alse", Kind::Bool, false);
    case 'n': return scanWord("ull", Kind::Null, false);
    case ',': return failAt(m_at - 1, QJsonParseError::IllegalValue);
    case '}':
    case ']': return failAt(m_at - 1, QJsonParseError::MissingObject);
    default: --m_at; return scanNumber();
    }
}

bool JsonTextScan::scanWord(const char *rest, Kind kind, bool isTrue)
{
    const char *const start = m_at - 1;
    const auto size = static_cast<std::ptrdiff_t>(std::strlen(rest));
    // One more byte has to follow: no word can end a text.
    if (m_end - m_at <= size) {
        return failAt(start, QJsonParseError::IllegalValue);
    }
    for (; *rest != '\0'; ++rest) {
        if (*m_at++ != *rest) {
            return failAt(start, QJsonParseError::IllegalValue);
        }
    }
    m_entries[append(kind, start)].integer = isTrue ? 1 : 0;
    return true;
}

bool JsonTextScan::scanArray()
{
    if (++m_depth > maximumDepth) {
        return failAt(m_at - 1, QJsonParseError::DeepNesting);
    }
    const quint32 array = append(Kind::Array, m_at - 1);
    if (!skipSpace()) {
        return fail(QJsonParseError::UnterminatedArray);
    }
    if (*m_at == ']') {
        ++m_at;
    } else if (!scanElements()) {
        return false;
    }
    close(array);
    return true;
}

bool JsonTextScan::scanElements()
{
    while (true) {
        if (!skipSpace()) {
            return fail(QJsonParseError::UnterminatedArray);
        }
        if (!scanValue()) {
            return false;
        }
        const char token = nextToken();
        if (token == ']') {
            return true;
        }
        if (token != ',') {
            const char *const place = placeOf(token);
            return failAt(place, skipSpace() ? QJsonParseError::MissingValueSeparator
                                             : QJsonParseError::UnterminatedArray);
        }
    }
}

bool JsonTextScan::scanObject()
{
    if (++m_depth > maximumDepth) {
        return failAt(m_at - 1, QJsonParseError::DeepNesting);
    }
    const quint32 object = append(Kind::Object, m_at - 1);
    if (!scanMembers(object)) {
        return false;
    }
    close(object);
    return true;
}

bool JsonTextScan::scanMembers(quint32 object)
{
    Order order = m_hasZero ? Order::AsToolkit : Order::AsWritten;
    quint32 previousKey = 0; // No key: that is the document.
    char token = nextToken();
    while (token == '"') {
        const auto key = static_cast<quint32>(m_entries.size());
        if (!scanMember()) {
            return false;
        }
        if (m_entries[key].isEscaped) {
            order = Order::AsToolkit;
        } else if (order == Order::AsWritten && !isBehind(previousKey, key)) {
            order = Order::ByBytes;
        }
        previousKey = key;
        token = nextToken();
        if (token != ',') {
            break;
        }
        token = nextToken();
        if (token == '}') {
            return failAt(m_at - 1, QJsonParseError::MissingObject);
        }
    }
    m_entries[object].order = order;
    return token == '}' || failAt(placeOf(token), QJsonParseError::UnterminatedObject);
}

bool JsonTextScan::scanMember()
{
    if (!scanText()) {
        return false;
    }
    const char token = nextToken();
    if (token != ':') {
        return failAt(placeOf(token), QJsonParseError::MissingNameSeparator);
    }
    if (!skipSpace()) {
        return fail(QJsonParseError::UnterminatedObject);
    }
    return scanValue();
}

/// Whether @p key comes behind @p previousKey; both without escapes.
bool JsonTextScan::isBehind(quint32 previousKey, quint32 key) const
{
    if (previousKey == 0) {
        return true;
    }
    const Entry &right = m_entries[key];
    const Entry &left = m_entries[previousKey];
    const qint64 size = std::min(left.integer, right.integer);
    const int order = std::memcmp(m_begin + left.offset, m_begin + right.offset,
                                  static_cast<std::size_t>(size));
    return order < 0 || (order == 0 && left.integer < right.integer);
}

/// The first quote, backslash or byte of several from @p at; the end if there is none.
const char *JsonTextScan::skipPlain(const char *at) const
{
    while (m_end - at >= 8) {
        const auto bytes = qFromLittleEndian<quint64>(at);
        const quint64 marks = marksOf(bytes, '"') | marksOf(bytes, '\\') | (bytes & highBits);
        if (marks != 0) {
            return at + qCountTrailingZeroBits(marks) / 8;
        }
        at += 8;
    }
    while (at < m_end && *at != '"' && *at != '\\' && static_cast<uchar>(*at) < 0x80) {
        ++at;
    }
    return at;
}

/// A text or key, whose first quote was just passed.
bool JsonTextScan::scanText()
{
    const char *const start = m_at;
    bool isAscii = true;
    bool isEscaped = false;
    for (m_at = skipPlain(m_at); m_at < m_end && *m_at != '"'; m_at = skipPlain(m_at)) {
        isAscii = false;
        if (*m_at == '\\') {
            // Qt begins anew at the first escape, and before looks whether anything is behind it.
            if (!isEscaped && m_end - m_at == 1) {
                ++m_at;
                return fail(QJsonParseError::UnterminatedString);
            }
            isEscaped = true;
            if (!skipEscape()) {
                return fail(QJsonParseError::IllegalEscapeSequence);
            }
            continue;
        }
        const int size = Utf8Character::sizeOf(m_at, m_end);
        if (size == 0) {
            return fail(QJsonParseError::IllegalUTF8String);
        }
        m_at += size;
    }
    // The quote is passed even where it is missing, and counts as missing where nothing follows it.
    ++m_at;
    if (m_at >= m_end) {
        return fail(QJsonParseError::UnterminatedString);
    }
    Entry &entry = m_entries[append(Kind::Text, start)];
    entry.integer = m_at - 1 - start;
    entry.isAscii = isAscii;
    entry.isEscaped = isEscaped;
    return true;
}

/// Any one byte may be escaped; only behind a `u` more has to follow.
bool JsonTextScan::skipEscape()
{
    ++m_at;
    if (m_at >= m_end) {
        return false;
    }
    return *m_at++ != 'u' || skipHexDigits();
}

bool JsonTextScan::skipHexDigits()
{
    if (m_end - m_at < 4) {
        return false;
    }
    for (int i = 0; i < 4; ++i, ++m_at) {
        if (!isHexDigit(*m_at)) {
            return false;
        }
    }
    return true;
}

bool JsonTextScan::scanNumber()
{
    const char *const start = m_at;
    const JsonNumber number = JsonNumber::read(m_at, m_end);
    if (m_at >= m_end) {
        return fail(QJsonParseError::TerminationByNumber);
    }
    switch (number.form) {
    case JsonNumber::Broken: return failAt(start, QJsonParseError::IllegalNumber);
    case JsonNumber::Integer:
        m_entries[append(Kind::Integer, start)].integer = number.integer;
        break;
    case JsonNumber::Double: m_entries[append(Kind::Double, start)].number = number.number; break;
    }
    return true;
}
