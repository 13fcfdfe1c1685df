#pragma once

#include "Companion/TesselExport.h"

#include <QJsonObject>
#include <QString>

/// Reads an integer out of a JSON object.
///
/// True if @p object holds under @p key a number without fraction that fits an int; only then is
/// @p value set. JSON has one kind of number, so 5.0 and 5e0 are the integer 5; a text such as "5"
/// is none. The last argument is reserved and has no effect; pass 0.
TESSEL_EXPORT bool readIntegerValueFromJson(const QString &key, const QJsonObject &object,
                                            int &value, int reserved);
