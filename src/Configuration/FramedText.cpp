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
    Stretch whole;
    writeElement(root, 0, whole);
    QByteArray framed;
    framed.reserve(m_text.size() + m_separatorsSize + 1);
    appendInOrder(framed, whole);
    if (!m_isCompact) {
        framed += '\n';
    }
    m_text.clear();
    return framed;
}

void FramedText::writeElement(const ConfigurationAndProcessDataBase &element, int depth,
                              Stretch &stretch)
{
    if (ElementRegistration::isOfOwnClass(element)) {
        writeOwnElement(element, depth, stretch);
    } else {
        writeForeignElement(element, depth);
    }
    stretch.end = m_text.size();
}

void FramedText::writeForeignElement(const ConfigurationAndProcessDataBase &element, int depth)
{
    QJsonObject json;
    element.getContentAsQJsonObject(json);
    writeByToolkit(json, depth);
}

void FramedText::writeOwnElement(const ConfigurationAndProcessDataBase &element, int depth,
                                 Stretch &stretch)
{
    const OwnMembers own = membersOf(element);
    openObject();
    bool isFirst = true;
    std::size_t next = writeValues(own.members, 0, depth + 1, isFirst);
    if (next != own.members.size()) {
        beginMember(*own.members[next].key, depth + 1, isFirst);
        writeChildren(element, depth + 1, stretch);
        isFirst = false;
        writeValues(own.members, next + 1, depth + 1, isFirst);
    }
    closeObject(isFirst, depth);
}

FramedText::OwnMembers FramedText::membersOf(const ConfigurationAndProcessDataBase &element)
{
    OwnMembers own;
    own.properties = ownProperties(element).toMap();
    own.values = framedValues(element, own.properties);
    const QString &childrenKey = Definitions::getKeyDataPropertyValue();
    const bool isNode = isOfNodeClass(element);
    own.members.reserve(own.values.size() + 1);
    auto value = own.values.cbegin();
    const auto end = own.properties.cend();
    for (auto property = own.properties.cbegin(); property != end; ++property, ++value) {
        // The children stand in the place of a value that the node may have been given.
        if (!isNode || property.key() != childrenKey) {
            own.members.push_back({&property.key(), &*value});
        }
    }
    if (isNode) {
        own.members.push_back({&childrenKey, nullptr});
    }
    std::sort(own.members.begin(), own.members.end(),
              [](const Member &left, const Member &right) { return *left.key < *right.key; });
    return own;
}

std::size_t FramedText::writeValues(const std::vector<Member> &members, std::size_t next, int depth,
                                    bool &isFirst)
{
    for (; next < members.size() && members[next].value != nullptr; ++next) {
        const int begin = m_text.size();
        beginMember(*members[next].key, depth, isFirst);
        if (writeVariant(*members[next].value, depth)) {
            isFirst = false;
        } else {
            m_text.truncate(begin);
        }
    }
    return next;
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
    beginChildren(node, childs.size(), stretch);
    for (auto child = childs.cbegin(); child != childs.cend(); ++child) {
        if (beginChild(child, depth + 1, stretch)) {
            writeElement(*child.value(), depth + 1, stretch.children.back());
        }
    }
    endChildren(depth, stretch);
}

void FramedText::beginChildren(const ConfigurationAndProcessDataBase &node, int count,
                               Stretch &stretch)
{
    if (count == 0 && !FramingSilence::isKept()) {
        qWarning() << "Node has no childs!" << &node;
    }
    openObject();
    stretch.childrenBegin = m_text.size();
    // The children stay where they are while they are written.
    stretch.children.reserve(static_cast<std::size_t>(count));
}

bool FramedText::beginChild(ConfigurationAndProcessDataBase::ChildMap::const_iterator child,
                            int depth, Stretch &stretch)
{
    if (child.value().isNull()) {
        if (!FramingSilence::isKept()) {
            qWarning() << "Key has no value!";
        }
        return false;
    }
    stretch.children.emplace_back();
    stretch.children.back().key = &child.key();
    stretch.children.back().begin = m_text.size();
    writeKey(child.key(), depth);
    return true;
}

void FramedText::endChildren(int depth, Stretch &stretch)
{
    std::vector<Stretch> &children = stretch.children;
    stretch.childrenEnd = m_text.size();
    std::sort(children.begin(), children.end(),
              [](const Stretch &left, const Stretch &right) { return *left.key < *right.key; });
    if (!children.empty()) {
        m_separatorsSize += static_cast<int>(children.size() - 1) * separator().size();
    }
    closeObject(children.empty(), depth);
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

void FramedText::openObject()
{
    m_text += m_isCompact ? "{" : "{\n";
}

void FramedText::beginMember(const QString &key, int depth, bool isFirst)
{
    if (!isFirst) {
        m_text += separator();
    }
    writeKey(key, depth);
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
