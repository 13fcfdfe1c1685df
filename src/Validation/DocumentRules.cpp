#include "Validation/DocumentRules_p.h"
#include "Validation/ValueShown_p.h"

#include <QHash>
#include <QVarLengthArray>

#include <algorithm>
#include <limits>

namespace {

using Value = JsonText::Value;

/// Beyond that they are looked up instead of compared with each other.
constexpr int mostComparedKeys = 24;

bool isSameKey(const Value &left, const Value &right)
{
    if (left.isPlainText() && right.isPlainText()) {
        return left.plainText() == right.plainText();
    }
    return left.toString() == right.toString();
}

void reportTwice(CheckedFile &file, const Value &key, const QString &url)
{
    file.report(Rule::DuplicateKey, key, url,
                QStringLiteral("the key %1 stands in this object before; only one of its values is "
                               "kept")
                    .arg(quoted(key.toString())));
}

void checkManyKeys(CheckedFile &file, const Value &object, const QString &url)
{
    QHash<QString, bool> seen;
    for (JsonText::WrittenMembers member(object); member.isValid(); member.next()) {
        bool &isSeen = seen[member.key().toString()];
        if (isSeen) {
            reportTwice(file, member.key(), url);
        }
        isSeen = true;
    }
}

bool isWholeNumber(const QByteArray &written)
{
    const int begin = written.startsWith('-') ? 1 : 0;
    return std::all_of(written.begin() + begin, written.end(),
                       [](char digit) { return digit >= '0' && digit <= '9'; });
}

void checkNumber(CheckedFile &file, const Value &number, const QString &url)
{
    if (!DocumentRules::isReadAsWritten(file, number)) {
        file.report(Rule::NumberMisread, number, url,
                    QStringLiteral("%1 is read as %2")
                        .arg(shown(file, number),
                             QString::number(number.toDouble(), 'g',
                                             std::numeric_limits<double>::max_digits10)));
    }
}

} // namespace

bool DocumentRules::isReadAsWritten(const CheckedFile &file, const Value &number)
{
    using Limits = std::numeric_limits<qint64>;
    const bool isAtEnd = number.kind() == JsonText::Kind::Integer
                         && (number.toInteger() == Limits::min()
                             || number.toInteger() == Limits::max());
    if (!isAtEnd && number.kind() != JsonText::Kind::Double) {
        return true;
    }
    const QByteArray written = file.written(number);
    return !isWholeNumber(written)
           || (isAtEnd && written == QByteArray::number(number.toInteger()));
}

void DocumentRules::checkKeys(CheckedFile &file, const Value &object, const QString &url)
{
    QVarLengthArray<Value, mostComparedKeys> keys;
    for (JsonText::WrittenMembers member(object); member.isValid(); member.next()) {
        if (keys.size() == mostComparedKeys) {
            checkManyKeys(file, object, url);
            return;
        }
        keys.append(member.key());
    }
    for (int i = 1; i < keys.size(); ++i) {
        if (std::any_of(keys.begin(), keys.begin() + i,
                        [&](const Value &other) { return isSameKey(other, keys[i]); })) {
            reportTwice(file, keys[i], url);
        }
    }
}

void DocumentRules::checkPlain(CheckedFile &file, const Value &value, const QString &url)
{
    switch (value.kind()) {
    case JsonText::Kind::Integer:
    case JsonText::Kind::Double: checkNumber(file, value, url); break;
    case JsonText::Kind::Array:
        for (JsonText::Elements element(value); element.isValid(); element.next()) {
            checkPlain(file, element.value(), url);
        }
        break;
    case JsonText::Kind::Object:
        checkKeys(file, value, url);
        for (JsonText::WrittenMembers member(value); member.isValid(); member.next()) {
            checkPlain(file, member.value(), url);
        }
        break;
    default: break;
    }
}
