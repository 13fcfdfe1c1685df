#include "states/StateTable.h"

using namespace ProcessDataDefinitions;

namespace {

const StateRow &unknownRow()
{
    static const StateRow row{PROCESS_VALUE_ERROR_TYPE_NO_VALID_INPUT_VALUE, "unknown",
                              "no error state of the format", NAMUR_STATE_TYPE_FAILURE, false};
    return row;
}

} // namespace

const std::array<StateRow, StateTable::count> &StateTable::rows()
{
    static const std::array<StateRow, count> table{{
        {PROCESS_VALUE_ERROR_TYPE_VALID, "valid", "the value can be trusted", NAMUR_STATE_TYPE_NONE,
         true},
        {PROCESS_VALUE_ERROR_TYPE_UNDERRANGE, "underrange",
         "the measurement is below the measuring range", NAMUR_STATE_TYPE_OUT_OF_SPECIFICATION,
         false},
        {PROCESS_VALUE_ERROR_TYPE_OVERRANGE, "overrange",
         "the measurement is above the measuring range", NAMUR_STATE_TYPE_OUT_OF_SPECIFICATION,
         false},
        {PROCESS_VALUE_ERROR_TYPE_NO_VALID_INPUT_VALUE, "no-input",
         "nothing has been measured yet, or the input is missing", NAMUR_STATE_TYPE_FAILURE, false},
        {PROCESS_VALUE_ERROR_TYPE_DIVISION_BY_ZERO, "division-by-zero",
         "a calculation divided by zero", NAMUR_STATE_TYPE_FAILURE, false},
        {PROCESS_VALUE_ERROR_TYPE_INCORRECT_MATHEMATIC_VALUE, "incorrect-mathematic",
         "a calculation has no result", NAMUR_STATE_TYPE_FAILURE, false},
        {PROCESS_VALUE_ERROR_TYPE_INVALID_TEMPERATURE, "invalid-temperature",
         "a temperature that cannot be", NAMUR_STATE_TYPE_FAILURE, false},
        {PROCESS_VALUE_ERROR_TYPE_SENSOR_SHORT_CIRCUIT, "sensor-short-circuit",
         "the sensor's wires touch", NAMUR_STATE_TYPE_FAILURE, false},
        {PROCESS_VALUE_ERROR_TYPE_SENSOR_BREAKAGE, "sensor-breakage",
         "the sensor or its wire is broken", NAMUR_STATE_TYPE_FAILURE, false},
        {PROCESS_VALUE_ERROR_TYPE_TIMEOUT, "timeout", "the source has not answered in time",
         NAMUR_STATE_TYPE_FAILURE, false},
    }};
    return table;
}

const StateRow &StateTable::rowOf(ErrorTypes state)
{
    const int number = static_cast<int>(state);
    return number >= 0 && number < count ? rows()[static_cast<std::size_t>(number)] : unknownRow();
}

QString StateTable::nameOf(ErrorTypes state)
{
    const int number = static_cast<int>(state);
    return number >= 0 && number < count ? QString::fromLatin1(rowOf(state).name)
                                         : QStringLiteral("state-%1").arg(number);
}
