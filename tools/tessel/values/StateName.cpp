#include "values/StateName.h"

#include "text/Failure.h"
#include "text/Suggestion.h"

using ProcessDataDefinitions::ErrorTypes;

namespace {

/// The index of a name is the number of its state.
const QStringList &shortNames()
{
    static const QStringList names = {
        QStringLiteral("valid"),
        QStringLiteral("underrange"),
        QStringLiteral("overrange"),
        QStringLiteral("no-input"),
        QStringLiteral("division-by-zero"),
        QStringLiteral("incorrect-mathematic"),
        QStringLiteral("invalid-temperature"),
        QStringLiteral("sensor-short-circuit"),
        QStringLiteral("sensor-breakage"),
        QStringLiteral("timeout"),
    };
    return names;
}

} // namespace

QString stateName(ErrorTypes state)
{
    const int number = static_cast<int>(state);
    return number >= 0 && number < shortNames().size() ? shortNames().at(number)
                                                       : QStringLiteral("state-%1").arg(number);
}

StateMeaning stateMeaning(ErrorTypes state)
{
    using namespace ProcessDataDefinitions;
    switch (state) {
    case PROCESS_VALUE_ERROR_TYPE_VALID:
        return {QStringLiteral("the value can be trusted"), NAMUR_STATE_TYPE_NONE};
    case PROCESS_VALUE_ERROR_TYPE_UNDERRANGE:
        return {QStringLiteral("the measurement is below the measuring range"),
                NAMUR_STATE_TYPE_OUT_OF_SPECIFICATION};
    case PROCESS_VALUE_ERROR_TYPE_OVERRANGE:
        return {QStringLiteral("the measurement is above the measuring range"),
                NAMUR_STATE_TYPE_OUT_OF_SPECIFICATION};
    case PROCESS_VALUE_ERROR_TYPE_NO_VALID_INPUT_VALUE:
        return {QStringLiteral("nothing has been measured yet, or the input is missing"),
                NAMUR_STATE_TYPE_FAILURE};
    case PROCESS_VALUE_ERROR_TYPE_DIVISION_BY_ZERO:
        return {QStringLiteral("a calculation divided by zero"), NAMUR_STATE_TYPE_FAILURE};
    case PROCESS_VALUE_ERROR_TYPE_INCORRECT_MATHEMATIC_VALUE:
        return {QStringLiteral("a calculation has no result"), NAMUR_STATE_TYPE_FAILURE};
    case PROCESS_VALUE_ERROR_TYPE_INVALID_TEMPERATURE:
        return {QStringLiteral("a temperature that cannot be"), NAMUR_STATE_TYPE_FAILURE};
    case PROCESS_VALUE_ERROR_TYPE_SENSOR_SHORT_CIRCUIT:
        return {QStringLiteral("the sensor's wires touch"), NAMUR_STATE_TYPE_FAILURE};
    case PROCESS_VALUE_ERROR_TYPE_SENSOR_BREAKAGE:
        return {QStringLiteral("the sensor or its wire is broken"), NAMUR_STATE_TYPE_FAILURE};
    case PROCESS_VALUE_ERROR_TYPE_TIMEOUT:
        return {QStringLiteral("the source has not answered in time"), NAMUR_STATE_TYPE_FAILURE};
    }
    return {QStringLiteral("no error state of the format"), NAMUR_STATE_TYPE_FAILURE};
}

QStringList stateNames()
{
    return shortNames();
}

QStringList errorStateNames()
{
    return shortNames().mid(1);
}

std::optional<ErrorTypes> knownState(const QString &text)
{
    for (int number = 0; number < shortNames().size(); ++number) {
        const auto state = static_cast<ErrorTypes>(number);
        if (text == QString::number(number) || text.toLower() == shortNames().at(number)
            || text == getProcessValueStateTypeAsString(state)) {
            return state;
        }
    }
    return {};
}

ErrorTypes stateFromText(const QString &text)
{
    if (const auto state = knownState(text)) {
        return *state;
    }
    throw Failure{ExitCode::WrongUse,
                  QStringLiteral("'%1' is no error state%2; use a number from 1 to 9 or one of %3")
                      .arg(text, suggestion(text, shortNames()),
                           errorStateNames().join(QStringLiteral(", ")))};
}
