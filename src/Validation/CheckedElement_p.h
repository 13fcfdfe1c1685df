#pragma once

#include "Validation/CheckedFile_p.h"
#include "Validation/DescribedKey_p.h"
#include "Validation/DescribedType_p.h"

#include <array>

/// One element of a description, by the keys of the format. Points into its file, which has to stay.
class CheckedElement
{
public:
    CheckedElement(CheckedFile &file, const JsonText::Value &object, const QString &url);

    CheckedFile &file() const { return m_file; }
    const JsonText::Value &object() const { return m_object; }
    const QString &url() const { return m_url; }
    const DescribedType &type() const { return m_type; }
    const QString &typeName() const { return m_typeName; }

    bool has(DescribedKey key) const { return value(key).isValid(); }
    /// The one that is kept where the key stands several times; invalid without the key.
    const JsonText::Value &value(DescribedKey key) const
    {
        return m_values[static_cast<std::size_t>(key)];
    }
    /// As a leaf reads its offset and sizes: 0 for what is missing or none.
    quint32 count(DescribedKey key) const;
    bool flag(DescribedKey key) const;
    /// By KeyPlace.
    unsigned places() const;

    /// At the value of @p key, or at the element if it is missing.
    void report(Rule rule, DescribedKey key, const QString &text) const;

private:
    void gather();
    unsigned placesInFile() const;
    unsigned placesOfType() const;

    CheckedFile &m_file;
    JsonText::Value m_object;
    QString m_url;
    std::array<JsonText::Value, describedKeyCount> m_values;
    QString m_typeName;
    DescribedType m_type;
};
