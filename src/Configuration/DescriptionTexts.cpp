#include "Companion/ConfigurationAndProcessDataDefinitions.h"
#include "Configuration/DescriptionTexts_p.h"

#include <algorithm>

namespace {

using Definitions = ConfigurationAndProcessDataDefinitions;

thread_local DescriptionTexts *currentTexts = nullptr;

} // namespace

PropertyKey::PropertyKey(const QString &key)
    : text(key)
    , isType(key == Definitions::getKeyDataPropertyType())
    , isValue(key == Definitions::getKeyDataPropertyValue())
    , isHeldInDataType(isHeldInDataTypeUnder(key))
{
}

bool PropertyKey::isHeldInDataTypeUnder(const QString &key)
{
    return key == Definitions::getKeyDataPropertyValue()
           || key == Definitions::getKeyDataPropertyMinLimit()
           || key == Definitions::getKeyDataPropertyMaxLimit();
}

DescriptionTexts::DescriptionTexts()
{
    if (currentTexts == nullptr) {
        currentTexts = this;
    }
}

DescriptionTexts::~DescriptionTexts()
{
    if (currentTexts == this) {
        currentTexts = nullptr;
    }
}

DescriptionTexts *DescriptionTexts::current()
{
    return currentTexts;
}

QString DescriptionTexts::Children::next(const JsonText::Value &key)
{
    if (key.isPlainText() && m_texts.m_childKeys.size() > m_depth) {
        const std::vector<QString> &former = m_texts.m_childKeys[m_depth];
        if (m_number < former.size() && former[m_number] == key.plainText()) {
            m_texts.m_number = m_number++;
            return former[m_texts.m_number];
        }
    }
    return next(key.toString());
}

QString DescriptionTexts::Children::next(const QString &key)
{
    if (m_texts.m_childKeys.size() <= m_depth) {
        m_texts.m_childKeys.resize(m_depth + 1);
    }
    m_texts.m_number = m_number++;
    return sharedAt(m_texts.m_childKeys[m_depth], m_texts.m_number, key);
}

QString DescriptionTexts::sharedAt(std::vector<QString> &texts, std::size_t number,
                                   const QString &text)
{
    // A key that few of many children have gets no place for each of the others.
    constexpr std::size_t mostWithout = 16;
    if (number >= texts.size() + mostWithout) {
        return text;
    }
    if (number >= texts.size()) {
        texts.resize(number + 1);
    }
    // cppcheck-suppress duplicateConditionalAssign ; what is equal keeps the bytes that others share
    if (texts[number] != text) {
        texts[number] = text;
    }
    return texts[number];
}

DescriptionTexts::Property DescriptionTexts::propertyUnder(const QString &key)
{
    const QString &text = *m_texts.insert(key);
    return {PropertyKey(text), {}, &m_textsOfChildren[text]};
}

void DescriptionTexts::beginElement()
{
    m_index = 0;
    m_leftOut.clear();
}

const PropertyKey &DescriptionTexts::nextKey(const QString &key)
{
    const std::size_t index = m_index++;
    if (index == m_properties.size()) {
        m_properties.push_back(propertyUnder(key));
        m_kinds = nullptr;
    } else if (m_properties[index].key.text != key) {
        m_properties[index] = propertyUnder(key);
        m_kinds = nullptr;
    }
    return m_properties[index].key;
}

const PropertyKey &DescriptionTexts::nextKey(const JsonText::Value &key)
{
    if (m_index < m_properties.size() && key.isPlainText()
        && m_properties[m_index].key.text == key.plainText()) {
        return m_properties[m_index++].key;
    }
    return nextKey(key.toString());
}

void DescriptionTexts::shareValue(QVariant &value)
{
    if (value.userType() != QMetaType::QString) {
        return;
    }
    const auto &text = *static_cast<const QString *>(value.constData());
    // An empty text has nothing to share, and may be null or not.
    if (text.isEmpty()) {
        return;
    }
    Property &property = m_properties[m_index - 1];
    if (property.lastText == text) {
        value = property.lastText;
        return;
    }
    property.lastText = property.key.isType ? *m_texts.insert(text)
                                            : sharedAt(*property.textsOfChildren, m_number, text);
    value = property.lastText;
}

QVariant DescriptionTexts::valueOf(const QJsonValue &value)
{
    QVariant held = value.toVariant();
    shareValue(held);
    return held;
}

QVariant DescriptionTexts::valueOf(const JsonText::Value &value)
{
    if (!value.isText()) {
        return value.toVariant();
    }
    if (value.isPlainText()) {
        Property &property = m_properties[m_index - 1];
        const auto isThis = [&value](const QString &text) {
            return !text.isEmpty() && text == value.plainText();
        };
        if (isThis(property.lastText)) {
            return property.lastText;
        }
        const std::vector<QString> &formers = *property.textsOfChildren;
        if (m_number < formers.size() && isThis(formers[m_number])) {
            property.lastText = formers[m_number];
            return property.lastText;
        }
    }
    QVariant held = value.toVariant();
    shareValue(held);
    return held;
}

void DescriptionTexts::leaveOut()
{
    m_leftOut.push_back(m_index - 1);
}

QStringList DescriptionTexts::keysOfElement() const
{
    QStringList keys;
    for (std::size_t i = 0; i < m_index; ++i) {
        if (std::find(m_leftOut.cbegin(), m_leftOut.cend(), i) == m_leftOut.cend()) {
            keys.append(m_properties[i].key.text);
        }
    }
    return keys;
}

PropertyKinds &DescriptionTexts::endElement()
{
    if (m_kinds == nullptr || m_kindsCount != m_index || m_kindsLeftOut != m_leftOut) {
        const QStringList keys = keysOfElement();
        auto kinds = m_kindsOfKeys.find(keys);
        if (kinds == m_kindsOfKeys.end()) {
            const PropertyRecord::Shape plain(new PropertyShape(keys));
            kinds = m_kindsOfKeys.insert(keys, PropertyKinds(plain));
        }
        m_kinds = &kinds.value();
        m_kindsCount = m_index;
        m_kindsLeftOut = m_leftOut;
    }
    return *m_kinds;
}
