#pragma once

#include "TesselModels/TesselModelsExport.h"

#include <QObject>
#include <QString>

/// The enumerations of the models, under the name `Tessel` in QML: `Tessel.Valid`.
namespace TesselModels {

Q_NAMESPACE_EXPORT(TESSEL_MODELS_EXPORT)

/// The error state of a process value, with the numbers that it has in shared memory.
enum class State {
    Valid = 0,               ///< the value can be trusted
    Underrange = 1,          ///< the measurement is below the measuring range
    Overrange = 2,           ///< the measurement is above the measuring range
    NoInput = 3,             ///< nothing has been measured yet, or its region is away
    DivisionByZero = 4,      ///< a calculation divided by zero
    IncorrectMathematic = 5, ///< a calculation has no result
    InvalidTemperature = 6,  ///< a temperature that cannot be
    SensorShortCircuit = 7,  ///< the sensor's wires touch
    SensorBreakage = 8,      ///< the sensor or its wire is broken
    Timeout = 9              ///< the source has not answered in time
};
Q_ENUM_NS(State)

/// Why a value was not written.
enum class WriteError {
    NotConnected = 1, ///< the region is away
    NoSuchValue = 2,  ///< the description has no such URL
    ReadOnly = 3,     ///< only the creator of the region writes it
    WrongType = 4,    ///< what was given is no value of its type, or does not fit its slot
    OutOfRange = 5,   ///< it is beyond a limit of the description
    NotPublished = 6  ///< no lock was to be had, or the library refused it
};
Q_ENUM_NS(WriteError)

/// What the models of process values hold, whatever the column.
enum Role {
    UrlRole = Qt::UserRole + 1, ///< `url`
    NameRole,                   ///< `name`: last piece of the URL
    ValueRole,                  ///< `value`: in its own type; undefined unless it is valid
    TextRole,                   ///< `text`: for a person; 64-bit integers with all their digits
    StateRole,                  ///< `state`: number of the State
    StateNameRole,              ///< `stateName`: see stateName()
    ValidRole,                  ///< `valid`: whether there is a value
    UnitRole,                   ///< `unit`
    TypeRole,                   ///< `type`: name of the data type, such as `float`
    MinimumRole,                ///< `minimum`: lower limit; undefined: none
    MaximumRole,                ///< `maximum`: upper limit; undefined: none
    ReadOnlyRole,               ///< `readOnly`: only the creator of the region writes it
    DisplayPositionRole,        ///< `displayPosition`; undefined: none
    LabelRole                   ///< `label`: identifier of the text to show
};
Q_ENUM_NS(Role)

/// The columns of the models of process values, so that a view sorted by name is not undone by values.
enum Column {
    NameColumn,
    ValueColumn,
    UnitColumn,
    StateColumn,
    TypeColumn,
    AccessColumn,
    ColumnCount ///< how many there are
};
Q_ENUM_NS(Column)

/// What became of a write into a configuration. Below ConfigurationTargetMissing it was a success; the first
/// five are those of the library's checked write.
enum ConfigurationStatus {
    ConfigurationChanged = 0,             ///< the new value was stored
    ConfigurationUnchanged = 1,           ///< it stood there already
    ConfigurationTargetMissing = 2,       ///< there is no such value
    ConfigurationPatternMismatch = 3,     ///< the text does not match the pattern of the value
    ConfigurationPropertyPathInvalid = 4, ///< the element has no value that could be set
    ConfigurationWrongType = 5,           ///< what was given is no value of its type
    ConfigurationOutOfRange = 6,          ///< it is beyond a limit of the value
    ConfigurationReadOnly = 7             ///< the value is not to be changed
};
Q_ENUM_NS(ConfigurationStatus)

/// What the model of a configuration holds beside Role, of which it has url, name, value, text, unit, type,
/// minimum, maximum, readOnly, displayPosition and label.
enum ConfigurationRole {
    SelectionRole = LabelRole + 100, ///< `selection`: what a selector selects from, by index
    PatternRole,                     ///< `pattern`: of a text, a regular expression
    StatusRole,                      ///< `status`: of the last write; undefined: none
    StatusTextRole                   ///< `statusText`: the same in words
};
Q_ENUM_NS(ConfigurationRole)

/// The columns of the model of a configuration.
enum ConfigurationColumn {
    ConfigurationNameColumn,
    ConfigurationValueColumn,
    ConfigurationUnitColumn,
    ConfigurationTypeColumn,
    ConfigurationStatusColumn,
    ConfigurationColumnCount ///< how many there are
};
Q_ENUM_NS(ConfigurationColumn)

/// The word for a state, as the tool writes it, such as `overrange`; `state-77` for a number that is none.
TESSEL_MODELS_EXPORT QString stateName(int state);

} // namespace TesselModels
