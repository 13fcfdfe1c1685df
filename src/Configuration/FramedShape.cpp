#include "Configuration/FramedShape_p.h"

#include <algorithm>

namespace {

thread_local FramedShape *currentShape = nullptr;

/// Whether both are the same text, and no more than a text. Other values are not worth comparing,
/// as putting them in costs nothing to speak of.
bool isSameText(const QVariant &left, const QVariant &right)
{
    return left.userType() == QMetaType::QString && right.userType() == QMetaType::QString
           && left.isNull() == right.isNull()
           && *static_cast<const QString *>(left.constData())
                  == *static_cast<const QString *>(right.constData());
}

} // namespace

FramedShape::FramedShape()
{
    if (currentShape == nullptr) {
        currentShape = this;
    }
}

FramedShape::~FramedShape()
{
    if (currentShape == this) {
        currentShape = nullptr;
    }
}

FramedShape *FramedShape::current()
{
    return currentShape;
}

void FramedShape::fill(QJsonObject &json, const PropertyMap &properties,
                       const std::vector<QVariant> &values)
{
    const bool isWhole = json.isEmpty();
    const bool isRepeated = isWhole && fits(properties);
    if (isRepeated && !m_json.isEmpty() && fillFromLast(json, values)) {
        return;
    }
    auto value = values.cbegin();
    for (auto property = properties.cbegin(); property != properties.cend(); ++property) {
        json.insert(property.key(), QJsonValue::fromVariant(*value++));
    }
    if (!isRepeated) {
        noteKeys(properties);
    } else if (json.size() == properties.size()) {
        // Only now: where every element has other keys than the one before, this would be in vain.
        remember(json, values);
    }
}

bool FramedShape::fits(const PropertyMap &properties) const
{
    if (static_cast<std::size_t>(properties.size()) != m_members.size() || m_members.empty()) {
        return false;
    }
    auto member = m_members.cbegin();
    for (auto property = properties.cbegin(); property != properties.cend(); ++property) {
        if (property.key() != (member++)->key) {
            return false;
        }
    }
    return true;
}

/// False, and nothing done, for a value that JSON does not know.
bool FramedShape::fillFromLast(QJsonObject &json, const std::vector<QVariant> &values)
{
    QJsonObject filled = m_json;
    const auto first = filled.begin();
    for (std::size_t i = 0; i < values.size(); ++i) {
        const Member &member = m_members[i];
        if (isSameText(member.value, values[i])) {
            continue;
        }
        const QJsonValue value = QJsonValue::fromVariant(values[i]);
        if (value.isUndefined()) {
            return false;
        }
        (first + member.index).value() = value;
    }
    json = filled;
    return true;
}

void FramedShape::noteKeys(const PropertyMap &properties)
{
    m_json = QJsonObject();
    m_members.clear();
    for (auto property = properties.cbegin(); property != properties.cend(); ++property) {
        m_members.push_back({property.key(), {}, 0});
    }
}

void FramedShape::remember(const QJsonObject &json, const std::vector<QVariant> &values)
{
    const QStringList sortedKeys = json.keys();
    m_json = json;
    for (std::size_t i = 0; i < values.size(); ++i) {
        Member &member = m_members[i];
        const auto place = std::lower_bound(sortedKeys.cbegin(), sortedKeys.cend(), member.key);
        member.index = static_cast<int>(place - sortedKeys.cbegin());
        member.value = values[i];
    }
}
