#include "Companion/ConfigurationAndProcessDataDefinitions.h"
#include "Configuration/ElementRegistration_p.h"
#include "Configuration/FramedText_p.h"
#include "Configuration/FramedValues_p.h"
#include "Configuration/OwnProperties_p.h"
#include "Configuration/UrlWalk_p.h"

#include <QDebug>
#include <QJsonArray>
#include <QJsonObject>

#include <algorithm>
#include <array>
#include <charconv>

using Definitions = ConfigurationAndProcessDataDefinitions;

namespace {

constexpr int indentWidth = 4;

/// Printed as it stands between quotes.
bool isPlain(QChar character)
{
    return character >= QLatin1Char(' ') && character <= QLatin1Char('~')
           && character != QLatin1Char('"') && character != QLatin1Char('\\');
}

/// Every number up to here is a whole one as a double, which is what JSON knows.
bool isSmall(qint64 number)
{
    constexpr qint64 largest = qint64{1} << 53;
    return number >= -largest && number <= largest;
}

void appendNumber(QByteArray &text, qint64 number)
{
    std::array<char, 24> digits{};
    const auto end = std::to_chars(digits.data(), digits.data() + digits.size(), number);
    text.append(digits.data(), static_cast<int>(end.ptr - digits.data()));
}

} // namespace

QByteArray FramedText::frame(const ConfigurationAndProcessDataBase &root)
{
    m_text.clear();
    // An array with a reserve keeps its room when it gets shorter, as it does at each object's end.
    m_text.reserve(1);
    writeElement(root, 0);
    if (!m_isCompact) {
        m_text += '\n';
    }
    m_text.squeeze();
    return m_text;
}

void FramedText::writeElement(const ConfigurationAndProcessDataBase &element, int depth)
{
    if (ElementRegistration::isOfOwnClass(element)) {
        writeOwnElement(element, depth);
        return;
    }
    QJsonObject json;
    element.getContentAsQJsonObject(json);
    writeByToolkit(json, depth);
}

void FramedText::writeOwnElement(const ConfigurationAndProcessDataBase &element, int depth)
{
    const int begin = m_text.size();
    std::vector<Member> members;
    writeProperties(element, depth + 1, members);
    if (isOfNodeClass(element)) {
        // The children stand in the place of a value that the node may have been given.
        const QString &key = Definitions::getKeyDataPropertyValue();
        members.erase(std::remove_if(members.begin(), members.end(),
                                     [&key](const Member &member) { return member.key == key; }),
                      members.end());
        const int childrenBegin = m_text.size();
        writeChildren(element, depth + 1);
        members.push_back({key, childrenBegin, m_text.size()});
    }
    closeObject(members, begin, depth);
}

void FramedText::writeProperties(const ConfigurationAndProcessDataBase &element, int depth,
                                 std::vector<Member> &members)
{
    const ConfigurationAndProcessDataBase::PropertyMap properties = ownProperties(element);
    if (properties.isEmpty()) {
        qWarning() << "No properties found in configuration value!";
        return;
    }
    const std::vector<QVariant> values = toFramedValues(
        element, properties, Definitions::getBasicDataTypeMapForProcessData());
    members.reserve(values.size() + 1);
    auto value = values.cbegin();
    for (auto property = properties.cbegin(); property != properties.cend(); ++property) {
        const int begin = m_text.size();
        if (writeVariant(*value++, depth)) {
            members.push_back({property.key(), begin, m_text.size()});
        }
    }
}

void FramedText::writeChildren(const ConfigurationAndProcessDataBase &node, int depth)
{
    // A copy: what an element of another class does while it is framed is its own affair.
    const ConfigurationAndProcessDataBase::ChildMap childs = node.getChildMap();
    if (childs.isEmpty()) {
        qWarning() << "Node has no childs!" << &node;
    }
    const int begin = m_text.size();
    std::vector<Member> members;
    members.reserve(static_cast<std::size_t>(childs.size()));
    for (auto child = childs.cbegin(); child != childs.cend(); ++child) {
        if (child.value().isNull()) {
            qWarning() << "Key has no value!";
            continue;
        }
        const int childBegin = m_text.size();
        writeElement(*child.value(), depth + 1);
        members.push_back({child.key(), childBegin, m_text.size()});
    }
    closeObject(members, begin, depth);
}

void FramedText::closeObject(std::vector<Member> &members, int begin, int depth)
{
    std::sort(members.begin(), members.end(),
              [](const Member &left, const Member &right) { return left.key < right.key; });
    const QByteArray values = m_text.mid(begin);
    m_text.truncate(begin);
    const QByteArray indent(m_isCompact ? 0 : indentWidth * depth, ' ');
    m_text += m_isCompact ? "{" : "{\n";
    bool isFirst = true;
    for (const Member &member : members) {
        if (!isFirst) {
            m_text += m_isCompact ? "," : ",\n";
        }
        isFirst = false;
        if (!m_isCompact) {
            m_text.append(indent).append(indentWidth, ' ');
        }
        writeText(member.key);
        m_text += m_isCompact ? ":" : ": ";
        m_text.append(values.constData() + (member.begin - begin), member.end - member.begin);
    }
    if (!m_isCompact && !isFirst) {
        m_text += '\n';
    }
    m_text.append(indent).append('}');
}

bool FramedText::writeVariant(const QVariant &value, int depth)
{
    switch (value.userType()) {
    case QMetaType::Bool: m_text += value.toBool() ? "true" : "false"; return true;
    case QMetaType::Int: appendNumber(m_text, value.toInt()); return true;
    case QMetaType::LongLong:
        if (isSmall(value.toLongLong())) {
            appendNumber(m_text, value.toLongLong());
            return true;
        }
        break;
    case QMetaType::QString:
        writeText(*static_cast<const QString *>(value.constData()));
        return true;
    default: break;
    }
    const QJsonValue json = QJsonValue::fromVariant(value);
    if (json.isUndefined()) {
        return false;
    }
    writeByToolkit(json, depth);
    return true;
}

void FramedText::writeText(const QString &text)
{
    if (!std::all_of(text.cbegin(), text.cend(), isPlain)) {
        writeByToolkit(text, 0);
        return;
    }
    const int begin = m_text.size();
    m_text.resize(begin + text.size() + 2);
    char *target = m_text.data() + begin;
    *target++ = '"';
    for (const QChar character : text) {
        *target++ = character.toLatin1();
    }
    *target = '"';
}

void FramedText::writeByToolkit(const QJsonValue &value, int depth)
{
    if (m_isCompact) {
        const QByteArray text = QJsonDocument(QJsonArray{value}).toJson(QJsonDocument::Compact);
        m_text.append(text.constData() + 1, text.size() - 2);
        return;
    }
    // "[\n    VALUE\n]\n", in which the value stands at a depth of one.
    QByteArray text = QJsonDocument(QJsonArray{value}).toJson(QJsonDocument::Indented);
    text = text.mid(2 + indentWidth, text.size() - (2 + indentWidth) - 3);
    if (depth == 0) {
        m_text += text.replace("\n    ", "\n");
        return;
    }
    m_text += text.replace('\n', '\n' + QByteArray(indentWidth * (depth - 1), ' '));
}
