#include "Validation/CheckedElement_p.h"

#include <limits>

CheckedElement::CheckedElement(CheckedFile &file, const JsonText::Value &object, const QString &url)
    : m_file(file)
    , m_object(object)
    , m_url(url)
{
    gather();
    const JsonText::Value &type = value(DescribedKey::Type);
    if (type.isValid() && type.isText()) {
        m_typeName = type.toString();
        m_type = DescribedType::of(m_typeName);
    }
}

void CheckedElement::gather()
{
    for (JsonText::WrittenMembers member(m_object); member.isValid(); member.next()) {
        const auto key = describedKey(member.key());
        if (!key) {
            continue;
        }
        JsonText::Value &value = m_values[static_cast<std::size_t>(*key)];
        const bool isThere = value.isValid();
        value = isThere ? m_object.member(QLatin1String(textOf(*key).toLatin1())) : member.value();
    }
}

quint32 CheckedElement::count(DescribedKey key) const
{
    const JsonText::Value &written = value(key);
    if (!written.isValid()) {
        return 0;
    }
    if (written.kind() == JsonText::Kind::Integer && written.toInteger() >= 0
        && written.toInteger() <= std::numeric_limits<quint32>::max()) {
        return static_cast<quint32>(written.toInteger());
    }
    return written.toVariant().toUInt();
}

bool CheckedElement::flag(DescribedKey key) const
{
    return value(key).isValid() && value(key).toVariant().toBool();
}

unsigned CheckedElement::places() const
{
    if (m_file.kind() == CheckedFile::Kind::Folder) {
        return KeyPlace::Folder;
    }
    return placesInFile() | placesOfType();
}

unsigned CheckedElement::placesInFile() const
{
    if (m_object.offset() != m_file.root().offset()) {
        return 0;
    }
    return KeyPlace::Top | (m_file.isProcess() ? KeyPlace::ProcessTop : 0U);
}

unsigned CheckedElement::placesOfType() const
{
    if (m_type.isNode) {
        return KeyPlace::Node;
    }
    if (!m_type.isKnown()) {
        // Whatever it was meant to be.
        return KeyPlace::Element | KeyPlace::Number | KeyPlace::ConfigurationText
               | KeyPlace::Selector | KeyPlace::Array;
    }
    unsigned places = m_file.isProcess() ? KeyPlace::ProcessLeaf : KeyPlace::ConfigurationLeaf;
    places |= m_type.isNumber || m_type.isSelector ? KeyPlace::Number : 0U;
    places |= m_type.isText && !m_file.isProcess() ? KeyPlace::ConfigurationText : 0U;
    places |= m_type.isSelector ? KeyPlace::Selector : 0U;
    places |= m_type.isArray ? KeyPlace::Array : 0U;
    return places;
}

void CheckedElement::report(Rule rule, DescribedKey key, const QString &text) const
{
    m_file.report(rule, has(key) ? value(key) : m_object, m_url, text);
}
