#pragma once

#include <QString>
#include <QStringList>

#include <optional>

/// What a run is asked for.
struct RateOptions
{
    /// A fault on purpose, which the run has to find.
    enum class Plant { None, TornSet, UncountedSet };

    int leaves = 10000;
    int changing = 0; ///< leaves that change with each set; 0: all
    double rate = 1000;
    double seconds = 10;
    Plant plant = Plant::None;

    int changed() const { return changing == 0 ? leaves : changing; }

    /// Nothing where the words are wrong; @p problem says why.
    static std::optional<RateOptions> fromWords(const QStringList &words, QString &problem);
};
