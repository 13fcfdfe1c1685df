#pragma once

#include "Configuration/ConfigurationAndProcessDataBase.h"
#include "Configuration/HeldContainer_p.h"
#include "Configuration/PropertyRecord_p.h"

#include <limits>

/// The properties of an element of the library's own classes, without a copy.
///
/// One of any other class may hold them elsewhere, and has to be asked by its virtual functions.
inline const ElementProperties &ownProperties(const ConfigurationAndProcessDataBase &element)
{
    struct Opened : ConfigurationAndProcessDataBase
    {
        static const ElementProperties &of(const ConfigurationAndProcessDataBase &element)
        {
            return element.*(&Opened::m_properties);
        }
    };
    return Opened::of(element);
}

/// What QVariant::toUInt() makes of one of @p properties; 0 if there is none under @p key.
inline quint32 ownNumber(const ElementProperties &properties, UsualKey key)
{
    const QVariant *const number = PropertyRecord::valueUnder(properties, key);
    if (number == nullptr) {
        return 0;
    }
    // As descriptions have it, without the search for a way from one type to the other.
    if (typeOf(*number) == QMetaType::LongLong) {
        const auto whole = heldBy<qint64>(*number);
        if (whole >= 0 && whole <= std::numeric_limits<quint32>::max()) {
            return static_cast<quint32>(whole);
        }
    }
    return number->toUInt();
}

/// The type names of such an element with the types in which their values are held.
inline const QHash<QString, QMetaType::Type> &ownDataTypes(
    const ConfigurationAndProcessDataBase &element)
{
    struct Opened : ConfigurationAndProcessDataBase
    {
        static const QHash<QString, QMetaType::Type> &of(
            const ConfigurationAndProcessDataBase &element)
        {
            return element.*(&Opened::m_dataTypeMap);
        }
    };
    return Opened::of(element);
}
