#include "Companion/ConfigurationAndProcessDataDefinitions.h"
#include "Configuration/ElementRegistration_p.h"
#include "Configuration/FramedText_p.h"
#include "Configuration/FramedValues_p.h"
#include "Configuration/FramingSilence_p.h"
#include "Configuration/OwnProperties_p.h"
#include "Configuration/UrlWalk_p.h"

#include <QDebug>
#include <QJsonArray>
#include <QJsonObject>

#include <algorithm>
#include <array>
#include <charconv>
#include <utility>

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
    // An array with a reserve keeps its room when it gets shorter.
    m_text.reserve(1);
    m_separatorsSize = 0;
    const Stretch whole = writeElement(root, 0);
    QByteArray framed;
    framed.reserve(m_text.size() + m_separatorsSize + 1);
    appendInOrder(framed, whole);
    if (!m_isCompact) {
        framed += '\n';
    }
    m_text.clear();
    return framed;
}

FramedText::Stretch FramedText::writeElement(const ConfigurationAndProcessDataBase &element,
                                             int depth)
{
    Stretch stretch;
    stretch.begin = m_text.size();
    if (ElementRegistration::isOfOwnClass(element)) {
        writeOwnElement(element, depth, stretch);
    } else {
        QJsonObject json;
        element.getContentAsQJsonObject(json);
        writeByToolkit(json, depth);
    }
    stretch.end = m_text.size();
    return stretch;
}

void FramedText::writeOwnElement(const ConfigurationAndProcessDataBase &element, int depth,
                                 Stretch &stretch)
{
    // A copy: what a child of another class does while it is framed is its own affair.
    const ConfigurationAndProcessDataBase::PropertyMap properties = ownProperties(element);
    const std::vector<QVariant> values = framedValues(element, properties);
    const QString &childrenKey = Definitions::getKeyDataPropertyValue();
    const bool isNode = isOfNodeClass(element);
    std::vector<Member> members;
    members.reserve(values.size() + 1);
    auto value = values.cbegin();
    for (auto property = properties.cbegin(); property != properties.cend(); ++property, ++value) {
        // The children stand in the place of a value that the node may have been given.
        if (!isNode || property.key() != childrenKey) {
            members.push_back({&property.key(), &*value});
        }
    }
    if (isNode) {
        members.push_back({&childrenKey, nullptr});
    }
    std::sort(members.begin(), members.end(),
              [](const Member &left, const Member &right) { return *left.key < *right.key; });
    m_text += m_isCompact ? "{" : "{\n";
    bool isFirst = true;
    for (const Member &member : members) {
        const int begin = m_text.size();
        m_text += isFirst ? QByteArray() : separator();
        writeKey(*member.key, depth + 1);
        if (member.value == nullptr) {
            writeChildren(element, depth + 1, stretch);
        } else if (!writeVariant(*member.value, depth + 1)) {
            m_text.truncate(begin);
            continue;
        }
        isFirst = false;
    }
    closeObject(isFirst, depth);
}

std::vector<QVariant> FramedText::framedValues(
    const ConfigurationAndProcessDataBase &element,
    const ConfigurationAndProcessDataBase::PropertyMap &properties)
{
    if (properties.isEmpty()) {
        if (!FramingSilence::isKept()) {
            qWarning() << "No properties found in configuration value!";
        }
        return {};
    }
    return toFramedValues(element, properties, ownDataTypes(element));
}

void FramedText::writeChildren(const ConfigurationAndProcessDataBase &node, int depth,
                               Stretch &stretch)
{
    // A copy: what an element of another class does while it is framed is its own affair.
    const ConfigurationAndProcessDataBase::ChildMap childs = node.getChildMap();
    if (childs.isEmpty() && !FramingSilence::isKept()) {
        qWarning() << "Node has no childs!" << &node;
    }
    m_text += m_isCompact ? "{" : "{\n";
    stretch.childrenBegin = m_text.size();
    std::vector<std::pair<const QString *, Stretch>> written;
    written.reserve(static_cast<std::size_t>(childs.size()));
    for (auto child = childs.cbegin(); child != childs.cend(); ++child) {
        if (child.value().isNull()) {
            if (!FramingSilence::isKept()) {
                qWarning() << "Key has no value!";
            }
            continue;
        }
        const int begin = m_text.size();
        writeKey(child.key(), depth + 1);
        written.emplace_back(&child.key(), writeElement(*child.value(), depth + 1));
        written.back().second.begin = begin;
    }
    stretch.childrenEnd = m_text.size();
    std::sort(written.begin(), written.end(),
              [](const auto &left, const auto &right) { return *left.first < *right.first; });
    stretch.children.reserve(written.size());
    for (auto &child : written) {
        stretch.children.push_back(std::move(child.second));
    }
    if (!written.empty()) {
        m_separatorsSize += static_cast<int>(written.size() - 1) * separator().size();
    }
    closeObject(written.empty(), depth);
}

void FramedText::appendInOrder(QByteArray &framed, const Stretch &stretch) const
{
    const auto append = [this, &framed](int begin, int end) {
        framed.append(m_text.constData() + begin, end - begin);
    };
    if (stretch.children.empty()) {
        append(stretch.begin, stretch.end);
        return;
    }
    append(stretch.begin, stretch.childrenBegin);
    bool isFirst = true;
    for (const Stretch &child : stretch.children) {
        framed += isFirst ? QByteArray() : separator();
        isFirst = false;
        appendInOrder(framed, child);
    }
    append(stretch.childrenEnd, stretch.end);
}

QByteArray FramedText::separator() const
{
    return m_isCompact ? QByteArrayLiteral(",") : QByteArrayLiteral(",\n");
}

void FramedText::writeKey(const QString &key, int depth)
{
    if (!m_isCompact) {
        m_text.append(indentWidth * depth, ' ');
    }
    writeText(key);
    m_text += m_isCompact ? ":" : ": ";
}

void FramedText::closeObject(bool isEmpty, int depth)
{
    if (!m_isCompact) {
        m_text += isEmpty ? "" : "\n";
        m_text.append(indentWidth * depth, ' ');
    }
    m_text += '}';
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
