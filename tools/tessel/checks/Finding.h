#pragma once

#include <QString>
#include <QVector>

#include <optional>

/// Something that is wrong on the machine, or that could not be found out.
struct Finding
{
    enum class Level {
        Error,   ///< Somebody reads or writes what nobody else sees, or cannot work at all.
        Warning, ///< It works, and will not for long or not for everybody.
        Unknown  ///< It could not be looked at: neither well nor wrong.
    };

    Level level;
    QString rule;              ///< short and lasting, such as `former-region`
    QString key;               ///< memory key of the region; empty where it is about the machine
    QString place;             ///< the key, or what of the machine it is, such as `/dev/shm`
    std::optional<qint64> pid; ///< of the process that it is about
    QString text;              ///< a sentence without its full stop
    QString cure;              ///< what to do, with the command where there is one; may be empty
};

using Findings = QVector<Finding>;
