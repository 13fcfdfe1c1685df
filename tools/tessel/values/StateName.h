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

/// The short names of all states but the valid one, by their numbers.
QStringList errorStateNames();

/// The error state that a person means by a number from 0 to 9, a short name or the name of the
/// enumerator. A Failure of WrongUse if it is none of them.
ProcessDataDefinitions::ErrorTypes stateFromText(const QString &text);
