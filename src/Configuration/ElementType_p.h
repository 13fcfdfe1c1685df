#pragma once

#include "Companion/ConfigurationAndProcessDataDefinitions.h"
#include "Configuration/ConfigurationAndProcessDataBase.h"

/// By what the element says of itself, which need not agree with its class.
inline bool isTreeNode(const ConfigurationAndProcessDataBase &element)
{
    using Definitions = ConfigurationAndProcessDataDefinitions;
    return element.getProperty(Definitions::getKeyDataPropertyType()).toString()
           == Definitions::getKeyDataTypeTreeNode();
}
