#include "values/StateName.h"

#include "states/StateTable.h"
#include "text/Failure.h"
#include "text/Suggestion.h"

using ProcessDataDefinitions::ErrorTypes;

namespace {

/// The index of a name is the number of its state.
const QStringList &shortNames()
{
    static const QStringList names = [] {
        QStringList all;
        for (const auto &row : StateTable::rows()) {
            all.append(QString::fromLatin1(row.name));
        }
        return all;
    }();
    return names;
}

} // namespace

QString stateName(ErrorTypes state)
{
    return StateTable::nameOf(state);
}

StateMeaning stateMeaning(ErrorTypes state)
{
    const StateRow &row = StateTable::rowOf(state);
    return {QString::fromLatin1(row.meaning), row.derivedNamurState};
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
