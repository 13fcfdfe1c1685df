#pragma once

#include <QString>
#include <QStringList>
#include <QVector>

#include <algorithm>
#include <numeric>

/// How many letters must be typed differently to get from one word to the other.
inline int editDistance(const QString &left, const QString &right)
{
    QVector<int> row(right.size() + 1);
    std::iota(row.begin(), row.end(), 0);
    for (int i = 1; i <= left.size(); ++i) {
        int diagonal = row[0];
        row[0] = i;
        for (int j = 1; j <= right.size(); ++j) {
            const int substituted = diagonal + (left[i - 1] == right[j - 1] ? 0 : 1);
            diagonal = row[j];
            row[j] = std::min({substituted, row[j] + 1, row[j - 1] + 1});
        }
    }
    return row.last();
}

/// The candidate that was probably meant by @p word, or an empty text if none looks like it.
inline QString nearestWord(const QString &word, const QStringList &candidates)
{
    QString best;
    // More than a third of the letters wrong is another word, not a slip.
    int bestDistance = std::max(2, word.size() / 3) + 1;
    for (const auto &candidate : candidates) {
        const int distance = editDistance(word.toLower(), candidate.toLower());
        if (distance < bestDistance && distance < candidate.size()) {
            best = candidate;
            bestDistance = distance;
        }
    }
    return best;
}
