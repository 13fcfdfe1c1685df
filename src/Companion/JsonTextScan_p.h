#pragma once

#include "Companion/JsonText_p.h"

/// Goes once through a JSON text and notes what stands where. The rules are those of Qt 5.15, which go
/// beyond the standard here and there; where they are odd, the order of steps decides what a broken text
/// is told to be.
class JsonTextScan
{
public:
    /// Appends to @p entries, which is empty.
    JsonTextScan(const QByteArray &text, std::vector<JsonText::Entry> &entries);

    /// False if the text is refused; then the entries are of no use.
    bool scan();

    QJsonParseError error() const { return m_error; }
    /// Of the first byte of what is at fault, where the offset of the error is the one up to which Qt has read.
    int faultOffset() const { return m_faultOffset; }

private:
    using Kind = JsonText::Kind;
    using Entry = JsonText::Entry;
    using Order = JsonText::Order;

    bool fail(QJsonParseError::ParseError error);
    bool failAt(const char *fault, QJsonParseError::ParseError error);
    void skipByteOrderMark();
    bool skipSpace();
    char nextToken();
    const char *placeOf(char token) const;
    quint32 append(Kind kind, const char *at);
    void close(quint32 index);

    bool scanValue();
    bool scanWord(const char *rest, Kind kind, bool isTrue);
    bool scanArray();
    bool scanElements();
    bool scanObject();
    bool scanMembers(quint32 object);
    bool scanMember();
    bool isBehind(quint32 previousKey, quint32 key) const;

    bool scanText();
    const char *skipPlain(const char *at) const;
    bool skipEscape();
    bool skipHexDigits();

    bool scanNumber();

    const char *const m_begin;
    const char *const m_end;
    const char *m_at;
    std::vector<Entry> &m_entries;
    /// Keys with a zero byte are compared oddly, and are hardly worth a look at each of them.
    const bool m_hasZero;
    int m_depth = 0;
    QJsonParseError m_error{0, QJsonParseError::NoError};
    int m_faultOffset = 0;
};
