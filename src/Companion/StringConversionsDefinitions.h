#pragma once

#include "Companion/TesselExport.h"

#include <QString>

/// Texts that stand for a boolean or for the error state of a process value where a person reads it.
///
/// Booleans are `true` and `false`. The signs are as wide as a short number, and none of them reads
/// as one: `_____` under the range, `^^^^^` above it, `-----` without input, `?????` otherwise.
class TESSEL_EXPORT StringConversionsDefinitions
{
public:
    StringConversionsDefinitions() = delete;

    /// `true`
    static const QString &getBoolValueTrue();
    /// `false`
    static const QString &getBoolValueFalse();

    /// `_____`
    static const QString &getErrorUnderrangeSign();
    /// `^^^^^`
    static const QString &getErrorOverrangeSign();
    /// `-----`
    static const QString &getErrorNoInputValueSign();
    /// For every error state that has no sign of its own.
    static const QString &getErrorNaNSign();
};
