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

QStringList errorStateNames()
{
    return shortNames().mid(1);
}

ErrorTypes stateFromText(const QString &text)
{
    for (int number = 0; number < shortNames().size(); ++number) {
        const auto state = static_cast<ErrorTypes>(number);
        if (text == QString::number(number) || text.toLower() == shortNames().at(number)
            || text == getProcessValueStateTypeAsString(state)) {
            return state;
        }
    }
    throw Failure{ExitCode::WrongUse,
                  QStringLiteral("'%1' is no error state%2; use a number from 1 to 9 or one of %3")
                      .arg(text, suggestion(text, shortNames()),
                           errorStateNames().join(QStringLiteral(", ")))};
}
