#include "Companion/ConfigurationAndProcessDataDefinitions.h"
#include "Configuration/DescriptionTexts_p.h"

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

const PropertyKey &DescriptionTexts::nextKey(const QString &key)
{
    const std::size_t index = m_index++;
    if (index == m_properties.size()) {
        m_properties.push_back({PropertyKey(*m_texts.insert(key)), {}});
    } else if (m_properties[index].key.text != key) {
        m_properties[index] = {PropertyKey(*m_texts.insert(key)), {}};
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
    property.lastText = property.key.isType ? *m_texts.insert(text) : text;
    if (property.key.isType) {
        value = property.lastText;
    }
}

QVariant DescriptionTexts::valueOf(const JsonText::Value &value)
{
    if (value.isText() && value.isPlainText()) {
        const QString &lastText = m_properties[m_index - 1].lastText;
        if (!lastText.isEmpty() && lastText == value.plainText()) {
            return lastText;
        }
    }
    QVariant held = value.toVariant();
    shareValue(held);
    return held;
}
