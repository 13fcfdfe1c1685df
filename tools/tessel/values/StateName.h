#pragma once

#include "ProcessData/ProcessValueErrorTypes.h"

#include <QString>
#include <QStringList>

#include <optional>

/// The short name of an error state, such as `overrange`; `state-77` for a number that is no state.
QString stateName(ProcessDataDefinitions::ErrorTypes state);

/// What the state says about the value, and with which letter NAMUR NE 107 would signal it: 'F' failure,
/// 'S' out of specification, a blank for nothing.
struct StateMeaning
{
    QString text;
    ProcessDataDefinitions::NamurStateTypes namurState;
};
StateMeaning stateMeaning(ProcessDataDefinitions::ErrorTypes state);

/// The short names of all states, by their numbers.
QStringList stateNames();
/// The same without the valid one.
QStringList errorStateNames();

/// The state that a person means by a number from 0 to 9, a short name or the name of the enumerator. Nothing if it is
/// none of them.
std::optional<ProcessDataDefinitions::ErrorTypes> knownState(const QString &text);
/// The same of somebody who was to name an error state. A Failure of WrongUse if it is none of them.
ProcessDataDefinitions::ErrorTypes stateFromText(const QString &text);
