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

void DescriptionTexts::beginElement()
{
    m_index = 0;
    m_leftOut.clear();
}

const PropertyKey &DescriptionTexts::nextKey(const QString &key)
{
    const std::size_t index = m_index++;
    if (index == m_properties.size()) {
        m_properties.push_back({PropertyKey(*m_texts.insert(key)), {}});
        m_shape.reset();
    } else if (m_properties[index].key.text != key) {
        m_properties[index] = {PropertyKey(*m_texts.insert(key)), {}};
        m_shape.reset();
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

QVariant DescriptionTexts::valueOf(const QJsonValue &value)
{
    QVariant held = value.toVariant();
    shareValue(held);
    return held;
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

PropertyRecord::Shape DescriptionTexts::endElement()
{
    if (!m_shape || m_shapeCount != m_index || m_shapeLeftOut != m_leftOut) {
        const QStringList keys = keysOfElement();
        PropertyRecord::Shape &shape = m_shapes[keys];
        if (!shape) {
            shape = PropertyRecord::Shape(new PropertyShape(keys));
        }
        m_shape = shape;
        m_shapeCount = m_index;
        m_shapeLeftOut = m_leftOut;
    }
    return m_shape;
}
