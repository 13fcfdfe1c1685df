#include "recordings/TriggerHint.h"

#include "Companion/NearestWord.h"
#include "expressions/Duration.h"
#include "values/StateName.h"

#include <QRegularExpression>

namespace {

bool looksLike(const QString &word, const char *meant)
{
    return !nearestWord(word, {QLatin1String(meant)}).isEmpty();
}

/// `state is valid pump`, without its colon as well.
QString nearestStateTrigger(const QString &text)
{
    static const QRegularExpression form(
        QStringLiteral("\\A\\s*([^\\s=!<>:]+)\\s*(==|!=|=!|=|<>|is\\s+not\\b|is\\b)\\s*([^\\s:]+)"
                       "(?:\\s*:\\s*|\\s+)(\\S.*?)\\s*\\z"));
    const QRegularExpressionMatch match = form.match(text);
    if (!match.hasMatch() || !looksLike(match.captured(1), "state")) {
        return {};
    }
    const QString sign = match.captured(2);
    const bool isNegated = sign.contains(QLatin1Char('!')) || sign == QLatin1String("<>")
                           || sign.endsWith(QLatin1String("not"));
    const auto known = knownState(match.captured(3));
    const QString near = nearestWord(match.captured(3), stateNames());
    return QStringLiteral("state %1 %2: %3")
        .arg(isNegated ? QStringLiteral("!=") : QStringLiteral("=="),
             known            ? stateName(*known)
             : near.isEmpty() ? stateNames().constFirst()
                              : near,
             match.captured(4));
}

/// `gaps >= 500ms`, and `gap` alone.
QString nearestGapTrigger(const QString &text)
{
    static const QRegularExpression form(
        QStringLiteral("\\A\\s*([^\\s=!<>:]+)\\s*(?:[=<>]+\\s*(.*?)\\s*)?\\z"));
    const QRegularExpressionMatch match = form.match(text);
    if (!match.hasMatch() || !looksLike(match.captured(1), "gap")) {
        return {};
    }
    const bool isTime = durationFromText(match.captured(2)).has_value();
    const bool isGap = match.captured(1) == QLatin1String("gap");
    if (!isTime && !isGap) {
        return {};
    }
    return QStringLiteral("gap > ") + (isTime ? match.captured(2) : QStringLiteral("500ms"));
}

} // namespace

QString nearestTrigger(const QString &text)
{
    const QString ofState = nearestStateTrigger(text);
    return ofState.isEmpty() ? nearestGapTrigger(text) : ofState;
}
