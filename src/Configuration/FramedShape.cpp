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
    if (json.isEmpty()) {
        if (!fits(properties)) {
            // Nothing more yet: where every element has other keys than the one before, a form
            // would be made in vain.
            note(properties, values);
        } else if (fillForm(json, values)) {
            return;
        }
    }
    auto value = values.cbegin();
    for (auto property = properties.cbegin(); property != properties.cend(); ++property) {
        json.insert(property.key(), QJsonValue::fromVariant(*value++));
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

void FramedShape::note(const PropertyMap &properties, const std::vector<QVariant> &values)
{
    m_form = QJsonObject();
    m_members.clear();
    auto value = values.cbegin();
    for (auto property = properties.cbegin(); property != properties.cend(); ++property) {
        m_members.push_back({property.key(), *value++, 0});
    }
}

/// False, and nothing done, for a value that JSON does not know.
bool FramedShape::fillForm(QJsonObject &json, const std::vector<QVariant> &values)
{
    if (blankWhatDiffers(values) || m_form.isEmpty()) {
        makeForm();
    }
    QJsonObject filled = m_form;
    const auto first = filled.begin();
    for (std::size_t i = 0; i < values.size(); ++i) {
        const Member &member = m_members[i];
        if (member.text.isValid()) {
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

bool FramedShape::blankWhatDiffers(const std::vector<QVariant> &values)
{
    bool differs = false;
    for (std::size_t i = 0; i < values.size(); ++i) {
        QVariant &text = m_members[i].text;
        if (text.isValid() && !isSameText(text, values[i])) {
            text.clear();
            differs = true;
        }
    }
    return differs;
}

/// Anew, and never by a change of the former one: an object keeps the room of a text that is
/// replaced, and each of its copies would as well.
void FramedShape::makeForm()
{
    std::vector<Member *> sorted;
    sorted.reserve(m_members.size());
    for (Member &member : m_members) {
        sorted.push_back(&member);
    }
    std::sort(sorted.begin(), sorted.end(),
              [](const Member *left, const Member *right) { return left->key < right->key; });
    m_form = QJsonObject();
    int index = 0;
    for (Member *const member : sorted) {
        member->index = index++;
        m_form.insert(member->key, QJsonValue::fromVariant(member->text));
    }
}
