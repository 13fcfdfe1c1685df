#pragma once

#include <QString>

#include <optional>

/// What is known of a region while its values are shown. Times in milliseconds.
struct RegionFacts
{
    QString absence;           ///< why it is not there; empty if it is
    QString hindrance;         ///< why its last set could not be copied; empty if it could
    std::optional<qint64> age; ///< of its last set; none with a single buffer
    std::optional<qint64> usualInterval; ///< from one set to the next
    std::optional<qint64> deadCreator;   ///< process id of a creator who has died
};

/// How far the values can be trusted, in a word for the eye and in words.
struct RegionStatus
{
    enum class Level { Good, Doubtful, Bad };

    Level level = Level::Good;
    QString text;
};

RegionStatus statusOf(const RegionFacts &facts);
