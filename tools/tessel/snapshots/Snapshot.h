#pragma once

#include "ProcessData/ProcessValue.h"

#include <QString>
#include <QStringList>
#include <QVector>

#include <optional>

/// One consistent set, as it is kept in a file.
struct Snapshot
{
    struct Value
    {
        QString url;
        QString type;
        QString unit;
        ProcessValue value{ProcessDataDefinitions::PROCESS_VALUE_ERROR_TYPE_NO_VALID_INPUT_VALUE};
    };

    QString key;
    QString fingerprint;               ///< of the layout, as 0x and 16 digits
    std::optional<quint64> generation; ///< of a double buffer
    QString published;                 ///< ISO 8601; empty where that cannot be known
    QString time;                      ///< when it was taken, ISO 8601
    QStringList urls;                  ///< what was asked for; everything without one
    QVector<Value> values;
};

/// The text of a file.
QString snapshotText(const Snapshot &snapshot);
/// From a regular file, or from standard input for "-". A Failure if it is none.
Snapshot readSnapshot(const QString &path);
