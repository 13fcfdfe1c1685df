#pragma once

#include "Companion/TesselExport.h"

#include <QChar>
#include <QHash>
#include <QString>

namespace ProcessDataDefinitions {

/// The error state that every process value carries. The numbers are part of the format in shared
/// memory, where a state fills 32 bits.
enum ErrorTypes : qint32 {
    PROCESS_VALUE_ERROR_TYPE_VALID = 0,
    PROCESS_VALUE_ERROR_TYPE_UNDERRANGE = 1,
    PROCESS_VALUE_ERROR_TYPE_OVERRANGE = 2,
    PROCESS_VALUE_ERROR_TYPE_NO_VALID_INPUT_VALUE = 3,
    PROCESS_VALUE_ERROR_TYPE_DIVISION_BY_ZERO = 4,
    PROCESS_VALUE_ERROR_TYPE_INCORRECT_MATHEMATIC_VALUE = 5,
    PROCESS_VALUE_ERROR_TYPE_INVALID_TEMPERATURE = 6,
    PROCESS_VALUE_ERROR_TYPE_SENSOR_SHORT_CIRCUIT = 7,
    PROCESS_VALUE_ERROR_TYPE_SENSOR_BREAKAGE = 8,
    PROCESS_VALUE_ERROR_TYPE_TIMEOUT = 9
};

/// The status signals of NAMUR NE 107.
enum NamurStateTypes : qint32 {
    NAMUR_STATE_TYPE_NONE = 0,                 ///< blank
    NAMUR_STATE_TYPE_FAILURE = 1,              ///< F
    NAMUR_STATE_TYPE_CHECK_FUNCTION = 2,       ///< C
    NAMUR_STATE_TYPE_OUT_OF_SPECIFICATION = 3, ///< S
    NAMUR_STATE_TYPE_MAINTENANCE_REQUIRED = 4  ///< M
};

} // namespace ProcessDataDefinitions

/// The enumerator's own name; "not defined" for a number that is no state.
TESSEL_EXPORT QString getProcessValueStateTypeAsString(ProcessDataDefinitions::ErrorTypes state);

/// The letter of NAMUR NE 107. A number that is no state reads as "F", with a warning.
TESSEL_EXPORT QChar getNamurStateTypeAsCharacter(ProcessDataDefinitions::NamurStateTypes state);
TESSEL_EXPORT QString getNamurStateTypeAsString(ProcessDataDefinitions::NamurStateTypes state);

/// The numbers that stand for an error state inside a floating-point slot without metadata: for a
/// float the number nearest to state times 1e37, for a double a quiet NaN (IEEE 754) with the
/// state as its payload.
///
/// The valid state is in none of the maps. As NaN equals nothing, no look-up in the map of doubles
/// ever finds a row: the encoding of a double can be written but is not recognised on reading.
/// Any thread may call these functions at any time.
class TESSEL_EXPORT ProcessValueErrorTypeMapDefinitions
{
public:
    ProcessValueErrorTypeMapDefinitions() = default;
    virtual ~ProcessValueErrorTypeMapDefinitions();

    /// The number that is written for a state, 1e37 to 9e37.
    static const QHash<ProcessDataDefinitions::ErrorTypes, float> &getMapStateTypeToFloatValue();
    /// The state for which a number stands.
    static const QHash<float, ProcessDataDefinitions::ErrorTypes> &getMapFloatValueToStateType();
    /// The NaN that is written for a state.
    static const QHash<ProcessDataDefinitions::ErrorTypes, double> &getMapStateTypeToDoubleValue();
    /// Never finds anything, as no NaN equals another.
    static const QHash<double, ProcessDataDefinitions::ErrorTypes> &getMapDoubleValueToStateType();
};
