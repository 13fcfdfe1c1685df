#include "text/Suggestion.h"

#include "Companion/NearestWord.h"

QString suggestion(const QString &word, const QStringList &candidates)
{
    const QString best = nearestWord(word, candidates);
    return best.isEmpty() ? QString() : QStringLiteral(" (did you mean '%1'?)").arg(best);
}
