#pragma once

#include "Companion/ConfigurationAndProcessDataDefinitions.h"

#include <QString>

#include <cstddef>

/// The keys that the library itself asks every leaf for, some of them several times.
enum class UsualKey : quint8 {
    Type,
    DisplayPosition,
    OffsetSharedMemory,
    RelativeOffsetMetadata,
    SizeValue,
    SizeMetadata,
    Bitmask,
    ReadOnly
};
constexpr std::size_t usualKeyCount = static_cast<std::size_t>(UsualKey::ReadOnly) + 1;

/// As a description has it.
inline const QString &keyText(UsualKey key)
{
    using Definitions = ConfigurationAndProcessDataDefinitions;
    switch (key) {
    case UsualKey::Type: return Definitions::getKeyDataPropertyType();
    case UsualKey::DisplayPosition: return Definitions::getKeyDataPropertyDisplayPosition();
    case UsualKey::OffsetSharedMemory: return Definitions::getKeyDataPropertyOffsetSharedMemory();
    case UsualKey::RelativeOffsetMetadata:
        return Definitions::getKeyDataPropertyRelativeOffsetMetadata();
    case UsualKey::SizeValue: return Definitions::getKeyDataPropertySizeValue();
    case UsualKey::SizeMetadata: return Definitions::getKeyDataPropertySizeMetadata();
    case UsualKey::Bitmask: return Definitions::getKeyDataPropertyBitmask();
    case UsualKey::ReadOnly: break;
    }
    return Definitions::getKeyDataPropertyReadOnly();
}
