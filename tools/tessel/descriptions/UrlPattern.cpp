#include "descriptions/UrlPattern.h"

#include <algorithm>

namespace {

constexpr QChar slash('/');
constexpr QChar anyCharacters('*');
const QLatin1String anyPieces("**");

// Both go back to the last star alone: what stood before it has matched as early as it could, which
// leaves the most to what comes behind. So many stars cost no more than the two lengths multiplied.

bool isMatch(const QString &name, const QString &pattern)
{
    int at = 0;
    int inName = 0;
    int star = -1;
    int behindStar = 0;
    while (inName < name.size()) {
        if (at < pattern.size() && pattern[at] == anyCharacters) {
            star = at++;
            behindStar = inName;
        } else if (at < pattern.size() && pattern[at] == name[inName]) {
            ++at;
            ++inName;
        } else if (star >= 0) {
            at = star + 1;
            inName = ++behindStar;
        } else {
            return false;
        }
    }
    return std::all_of(pattern.cbegin() + at, pattern.cend(),
                       [](QChar left) { return left == anyCharacters; });
}

} // namespace

UrlPattern::UrlPattern(const QString &url) : m_pieces(url.split(slash, Qt::SkipEmptyParts)) { }

bool UrlPattern::leadsTo(const QString &url) const
{
    const QStringList pieces = url.split(slash);
    int at = 0;
    int inUrl = 0;
    int star = -1;
    int behindStar = 0;
    while (at < m_pieces.size()) {
        if (m_pieces[at] == anyPieces) {
            star = at++;
            behindStar = inUrl;
        } else if (inUrl < pieces.size() && isMatch(pieces[inUrl], m_pieces[at])) {
            ++at;
            ++inUrl;
        } else if (star >= 0 && behindStar < pieces.size()) {
            at = star + 1;
            inUrl = ++behindStar;
        } else {
            return false;
        }
    }
    return !m_pieces.isEmpty();
}

bool UrlPattern::mayLeadInto(const QString &url) const
{
    const QStringList pieces = url.split(slash);
    const int count = std::min(pieces.size(), m_pieces.size());
    for (int i = 0; i < count; ++i) {
        if (m_pieces[i] == anyPieces) {
            return true;
        }
        if (!isMatch(pieces[i], m_pieces[i])) {
            return false;
        }
    }
    return !m_pieces.isEmpty();
}
