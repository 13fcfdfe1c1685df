#pragma once

#include "Inspection/RegionInspection.h"

#include <QDateTime>
#include <QString>
#include <QVector>

#include <optional>

/// What an inspection tells, in words and as JSON, the same for every subcommand. `-` and null stand for
/// what cannot be known.

/// How long ago that was: "0.1 s", "3 min".
QString ageText(const std::optional<QDateTime> &time);
/// A duration that is counted in seconds as long as it is short.
QString durationText(qint64 milliseconds);
/// "4711 alive"
QString creatorText(const RegionCreator &creator);
/// What became of the name of a memory that somebody still has though it leads elsewhere.
enum class FormerMemory { Replaced, Removed };
/// "measure 4711, display 4720 (replaced), ..."
QString usersText(const QVector<RegionUser> &users, bool isComplete,
                  FormerMemory former = FormerMemory::Replaced);

QString jsonNull();
QString jsonFlag(const std::optional<bool> &flag);
QString jsonTime(const std::optional<QDateTime> &time);
template <class Number>
QString jsonNumber(const std::optional<Number> &number)
{
    return number ? QString::number(*number) : jsonNull();
}
QString jsonUsers(const QVector<RegionUser> &users, bool isComplete);
