#pragma once

#include "Configuration/ConfigurationAndProcessDataBase.h"

/// The properties of an element of the library's own classes, without a copy.
///
/// One of any other class may hold them elsewhere, and has to be asked by its virtual functions.
inline const ConfigurationAndProcessDataBase::PropertyMap &ownProperties(
    const ConfigurationAndProcessDataBase &element)
{
    struct Opened : ConfigurationAndProcessDataBase
    {
        static const PropertyMap &of(const ConfigurationAndProcessDataBase &element)
        {
            return element.*(&Opened::m_properties);
        }
    };
    return Opened::of(element);
}
