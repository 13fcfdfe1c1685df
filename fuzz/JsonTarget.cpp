#include "Companion/JsonText_p.h"
#include "FuzzTarget.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <algorithm>
#include <cstring>
#include <vector>

#include <sanitizer/lsan_interface.h>

// A JSON text is taken or refused, and its values are visited, as by the document class of the toolkit.
//
// An input is the text.

namespace {

using Value = JsonText::Value;

/// What QJsonDocument makes of @p json. It forgets memory where a key stands twice or a text is broken.
QJsonDocument documentOf(const QByteArray &json, QJsonParseError &error)
{
    const __lsan::ScopedDisabler noLeaks;
    return QJsonDocument::fromJson(json, &error);
}

QJsonValue jsonValueOf(const Value &value)
{
    const __lsan::ScopedDisabler noLeaks;
    return value.toJsonValue();
}

bool isSame(const QVariant &left, const QVariant &right);

bool isSameList(const QVariantList &left, const QVariantList &right)
{
    return left.size() == right.size()
           && std::equal(left.begin(), left.end(), right.begin(), isSame);
}

bool isSameMap(const QVariantMap &left, const QVariantMap &right)
{
    return left.size() == right.size() && left.keys() == right.keys()
           && std::equal(left.begin(), left.end(), right.begin(), isSame);
}

bool isSameText(const QString &left, const QString &right)
{
    return left == right && left.isNull() == right.isNull();
}

/// Stricter than the operator, which converts numbers and texts into each other.
bool isSame(const QVariant &left, const QVariant &right)
{
    if (left.userType() != right.userType()) {
        return false;
    }
    switch (left.userType()) {
    case QMetaType::QVariantList: return isSameList(left.toList(), right.toList());
    case QMetaType::QVariantMap: return isSameMap(left.toMap(), right.toMap());
    case QMetaType::QString: return isSameText(left.toString(), right.toString());
    case QMetaType::Double:
        return std::memcmp(left.constData(), right.constData(), sizeof(double)) == 0;
    default: return left == right;
    }
}

void checkValue(const Value &value, const QJsonValue &expected);

void checkElements(const Value &array, const QJsonArray &expected)
{
    int index = 0;
    for (JsonText::Elements element(array); element.isValid(); element.next()) {
        require(index < expected.size(), "no element is added");
        checkValue(element.value(), expected.at(index++));
    }
    require(index == expected.size(), "no element is lost");
}

void checkSearch(const Value &object, QLatin1String key, const QJsonObject &expected)
{
    const Value found = object.member(key);
    const auto place = expected.constFind(key);
    require(found.isValid() == (place != expected.constEnd()), "a key is found where there is one");
    require(!found.isValid() || isSame(found.toVariant(), place.value().toVariant()),
            "a key leads to its last value");
}

/// Those that are written are those that are kept, and some with a key that is there as well.
void checkWrittenMembers(const Value &object)
{
    std::vector<int> kept;
    for (JsonText::Members member(object); member.isValid(); member.next()) {
        kept.push_back(member.key().offset());
    }
    std::sort(kept.begin(), kept.end());
    int previous = object.offset();
    std::size_t found = 0;
    for (JsonText::WrittenMembers member(object); member.isValid(); member.next()) {
        require(member.key().offset() > previous, "written members come in the order of the text");
        previous = member.value().offset();
        require(previous > member.key().offset(), "a value stands behind its key");
        found += std::binary_search(kept.begin(), kept.end(), member.key().offset()) ? 1 : 0;
    }
    require(found == kept.size(), "what is kept is written");
}

void checkMembers(const Value &object, const QJsonObject &expected)
{
    auto place = expected.constBegin();
    for (JsonText::Members member(object); member.isValid(); member.next()) {
        require(place != expected.constEnd(), "no member is added");
        require(isSameText(member.key().toString(), place.key()), "members come in order");
        checkValue(member.value(), place.value());
        ++place;
        const Value &key = member.key();
        if (key.isPlainText() && !key.toString().contains(QChar(0))) {
            checkSearch(object, key.plainText(), expected);
        }
    }
    require(place == expected.constEnd(), "no member is lost");
    checkWrittenMembers(object);
    checkSearch(object, QLatin1String("a"), expected);
    checkSearch(object, QLatin1String(""), expected);
}

void checkValue(const Value &value, const QJsonValue &expected)
{
    if (expected.isArray()) {
        require(value.isArray(), "an array is one");
        checkElements(value, expected.toArray());
    } else if (expected.isObject()) {
        require(value.isObject(), "an object is one");
        checkMembers(value, expected.toObject());
    } else {
        require(isSame(value.toVariant(), expected.toVariant()), "a value has its type");
        require(jsonValueOf(value) == expected, "a value goes into a document as it came");
    }
}

} // namespace

void runInput(const QByteArray &input)
{
    // One for all inputs, as a directory is read file by file.
    static JsonText text;
    QJsonParseError expectedError{-1, QJsonParseError::NoError};
    const QJsonDocument expected = documentOf(input, expectedError);

    require(text.read(input) == !expected.isNull(),
            "a text is refused where the toolkit refuses it");
    require(text.error().error == expectedError.error, "a broken text has one error");
    require(text.error().offset == expectedError.offset, "an error has one place");
    if (expected.isNull()) {
        return;
    }
    const QJsonValue root = expected.isArray() ? QJsonValue(expected.array())
                                               : QJsonValue(expected.object());
    checkValue(text.root(), root);
    require(isSame(text.root().toVariant(), expected.toVariant()), "a text is one variant");
    require(jsonValueOf(text.root()) == root, "a text is one document");
}
