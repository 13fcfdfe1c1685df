#include "web/WriteBody.h"

#include <QSet>
#include <QTextCodec>

#include <algorithm>
#include <cctype>

namespace {

/// Why and where the text is refused.
struct BodyProblem
{
    QString what;
    QString where;
};

bool isHexadecimal(QChar character)
{
    return character < QChar(0x80) && std::isxdigit(character.toLatin1()) != 0;
}

/// Goes through the text from its begin to its end.
class BodyScan
{
public:
    explicit BodyScan(const QString &text) : m_text(text) { }

    QVector<AskedWrite> readAll()
    {
        QVector<AskedWrite> writes;
        QSet<QString> urls;
        expect(QLatin1Char('{'), "an object of URLs and values");
        if (!accept(QLatin1Char('}'))) {
            do {
                writes.append(readMember());
                if (urls.contains(writes.last().url)) {
                    throw BodyProblem{QStringLiteral("the URL is given twice"), writes.last().url};
                }
                urls.insert(writes.last().url);
            } while (accept(QLatin1Char(',')));
            expect(QLatin1Char('}'), "',' or '}'");
        }
        skipBlanks();
        if (m_at < m_text.size()) {
            refuse("there is something behind the object");
        }
        return writes;
    }

private:
    [[noreturn]] void refuse(const char *what) const
    {
        throw BodyProblem{QString::fromLatin1(what), QStringLiteral("character %1").arg(m_at + 1)};
    }

    void skipBlanks()
    {
        const QString blanks = QStringLiteral(" \t\r\n");
        while (m_at < m_text.size() && blanks.contains(m_text[m_at])) {
            ++m_at;
        }
    }

    bool accept(QChar character)
    {
        skipBlanks();
        const bool isThere = m_at < m_text.size() && m_text[m_at] == character;
        m_at += isThere ? 1 : 0;
        return isThere;
    }

    void expect(QChar character, const char *what)
    {
        if (!accept(character)) {
            refuse(QByteArray("expected is ").append(what).constData());
        }
    }

    AskedWrite readMember()
    {
        skipBlanks();
        const QString url = readText();
        expect(QLatin1Char(':'), "':'");
        skipBlanks();
        AskedWrite write{url, AskedWrite::Kind::State, {}};
        if (!accept(QLatin1Char('{'))) {
            readScalar(write);
            return write;
        }
        skipBlanks();
        const QString key = readText();
        expect(QLatin1Char(':'), "':'");
        skipBlanks();
        readScalar(write);
        const bool isState = key == QLatin1String("state")
                             && write.kind != AskedWrite::Kind::Boolean;
        if (!isState || !accept(QLatin1Char('}'))) {
            refuseValue(url);
        }
        write.kind = AskedWrite::Kind::State;
        return write;
    }

    [[noreturn]] static void refuseValue(const QString &url)
    {
        throw BodyProblem{QStringLiteral("a number, a text, true, false or {\"state\": NAME} is a "
                                         "value"),
                          url};
    }

    void readScalar(AskedWrite &write)
    {
        const QStringRef rest = m_text.midRef(m_at);
        if (rest.startsWith(QLatin1Char('"'))) {
            write.kind = AskedWrite::Kind::Text;
            write.text = readText();
        } else if (rest.startsWith(QLatin1String("true"))
                   || rest.startsWith(QLatin1String("false"))) {
            write.kind = AskedWrite::Kind::Boolean;
            write.text = rest.startsWith(QLatin1Char('t')) ? QStringLiteral("true")
                                                           : QStringLiteral("false");
            m_at += write.text.size();
        } else if (rest.startsWith(QLatin1Char('[')) || rest.startsWith(QLatin1Char('{'))
                   || rest.startsWith(QLatin1String("null"))) {
            refuseValue(write.url);
        } else {
            write.kind = AskedWrite::Kind::Number;
            write.text = readNumber();
        }
    }

    int readDigits()
    {
        const int begin = m_at;
        while (m_at < m_text.size() && m_text[m_at] >= QLatin1Char('0')
               && m_text[m_at] <= QLatin1Char('9')) {
            ++m_at;
        }
        return m_at - begin;
    }

    bool acceptHere(const char *characters)
    {
        const bool isThere = m_at < m_text.size()
                             && QLatin1String(characters).contains(m_text[m_at]);
        m_at += isThere ? 1 : 0;
        return isThere;
    }

    QString readNumber()
    {
        const int begin = m_at;
        acceptHere("-");
        const bool isZero = m_at < m_text.size() && m_text[m_at] == QLatin1Char('0');
        const int digits = readDigits();
        bool isNumber = digits > 0 && (!isZero || digits == 1);
        if (acceptHere(".")) {
            isNumber = readDigits() > 0 && isNumber;
        }
        if (acceptHere("eE")) {
            acceptHere("+-");
            isNumber = readDigits() > 0 && isNumber;
        }
        if (!isNumber) {
            m_at = begin;
            refuse("a value is a number, a text, true, false or {\"state\": NAME}");
        }
        return m_text.mid(begin, m_at - begin);
    }

    QString readText()
    {
        if (!acceptHere("\"")) {
            refuse("expected is a text in quotation marks");
        }
        QString text;
        while (m_at < m_text.size() && m_text[m_at] != QLatin1Char('"')) {
            const QChar character = m_text[m_at];
            if (character < QLatin1Char(' ')) {
                refuse("a control character in a text is written as an escape");
            }
            ++m_at;
            text += character == QLatin1Char('\\') ? readEscape() : character;
        }
        if (!acceptHere("\"")) {
            refuse("a text has no end");
        }
        return text;
    }

    QChar readEscape()
    {
        static const QString names = QStringLiteral("\"\\/bfnrt");
        static const QString meanings = QStringLiteral("\"\\/\b\f\n\r\t");
        const QChar name = m_at < m_text.size() ? m_text[m_at] : QChar();
        ++m_at;
        const int known = names.indexOf(name);
        if (known >= 0) {
            return meanings[known];
        }
        const QString digits = m_text.mid(m_at, 4);
        // The toolkit would take signs, prefixes and blanks as well.
        const bool isUnit = digits.size() == 4
                            && std::all_of(digits.cbegin(), digits.cend(), isHexadecimal);
        if (name != QLatin1Char('u') || !isUnit) {
            refuse("this is no escape of JSON");
        }
        m_at += digits.size();
        return digits.toUShort(nullptr, 16);
    }

    const QString &m_text;
    int m_at = 0;
};

} // namespace

WriteBody WriteBody::read(const QByteArray &body)
{
    QTextCodec::ConverterState state(QTextCodec::IgnoreHeader);
    const QString text = QTextCodec::codecForName("UTF-8")->toUnicode(body.constData(), body.size(),
                                                                      &state);
    WriteBody read;
    if (state.invalidChars > 0 || state.remainingChars > 0) {
        read.problem = QStringLiteral("the body is no UTF-8 text");
        read.where = QStringLiteral("body");
        return read;
    }
    try {
        read.writes = BodyScan(text).readAll();
    } catch (const BodyProblem &problem) {
        read.problem = problem.what;
        read.where = problem.where.isEmpty() ? QStringLiteral("\"\"") : problem.where;
        return read;
    }
    if (read.writes.isEmpty()) {
        read.problem = QStringLiteral("there is no value in it");
        read.where = QStringLiteral("body");
    }
    return read;
}
