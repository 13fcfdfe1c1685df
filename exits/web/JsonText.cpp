#include "web/JsonText.h"

#include <QJsonArray>
#include <QJsonDocument>

#include <array>
#include <charconv>
#include <cmath>

namespace {

template <class Number>
QByteArray floatingJson(Number number)
{
    if (std::isnan(number)) {
        return "\"nan\"";
    }
    if (std::isinf(number)) {
        return number < 0 ? "\"-inf\"" : "\"inf\"";
    }
    std::array<char, 32> text;
    const auto end = std::to_chars(text.data(), text.data() + text.size(), number).ptr;
    return {text.data(), static_cast<int>(end - text.data())};
}

QByteArray contentJson(const QVariant &content)
{
    switch (content.userType()) {
    case QMetaType::Bool: return JsonText::boolean(content.toBool());
    case QMetaType::Float: return floatingJson(content.toFloat());
    case QMetaType::Double: return floatingJson(content.toDouble());
    case QMetaType::QString: return JsonText::text(content.toString());
    case QMetaType::Int:
    case QMetaType::LongLong: return QByteArray::number(content.toLongLong());
    case QMetaType::UInt:
    case QMetaType::ULongLong: return QByteArray::number(content.toULongLong());
    default: return "null";
    }
}

bool isErroneous(const ProcessValue &value)
{
    return value.getErrorType() != ProcessDataDefinitions::PROCESS_VALUE_ERROR_TYPE_VALID;
}

} // namespace

QByteArray JsonText::text(const QString &text)
{
    // A text alone is no document for the toolkit, but a list of one text is.
    const QByteArray list = QJsonDocument(QJsonArray{text}).toJson(QJsonDocument::Compact);
    return list.mid(1, list.size() - 2);
}

QByteArray JsonText::boolean(bool value)
{
    return value ? "true" : "false";
}

QByteArray JsonText::object(const Members &members)
{
    QByteArray all("{");
    for (const auto &member : members) {
        all += (all.size() > 1 ? ", \"" : "\"") + QByteArray(member.first) + "\": " + member.second;
    }
    return all + '}';
}

QByteArray JsonText::array(const QVector<QByteArray> &values)
{
    QByteArray all("[");
    for (const auto &value : values) {
        all += (all.size() > 1 ? "," : "") + value;
    }
    return all + ']';
}

QByteArray JsonText::value(const ProcessValue &value)
{
    return isErroneous(value) ? "null" : contentJson(value.getValue());
}

QByteArray JsonText::valueForBrowser(const ProcessValue &value)
{
    return isErroneous(value) ? "null" : numberForBrowser(value.getValue());
}

QByteArray JsonText::numberForBrowser(const QVariant &number)
{
    const bool isLong = number.userType() == QMetaType::LongLong
                        || number.userType() == QMetaType::ULongLong;
    const QByteArray json = contentJson(number);
    return isLong ? '"' + json + '"' : json;
}
