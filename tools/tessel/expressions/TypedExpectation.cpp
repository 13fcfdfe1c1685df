#include "expressions/TypedExpectation.h"

#include "expressions/ExpressionExcerpt.h"
#include "text/Failure.h"
#include "text/Output.h"

Expectation typedExpectation(const QString &command, const QString &text,
                             const DescriptionSource &description)
{
    try {
        return {text, description};
    } catch (const ExpressionError &error) {
        const QStringList lines = markedExcerpt(text, error.place);
        for (const auto &line : lines) {
            writeErrorLine(line);
        }
        const QString reason = QStringLiteral("%1: column %2: %3")
                                   .arg(command)
                                   .arg(columnOf(text, error.place))
                                   .arg(error.reason);
        throw Failure{error.code,
                      error.code == ExitCode::WrongUse
                          ? QStringLiteral("%1; see 'tessel %2 --help'").arg(reason, command)
                          : reason};
    }
}
