#pragma once

#include "Configuration/ConfigurationAndProcessDataBase.h"

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
