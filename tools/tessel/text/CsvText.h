#pragma once

#include <QString>
#include <QStringList>
#include <QVector>

/// Comma-separated values, quoted as RFC 4180 has it.

/// One record of a file, and the line on which it begins, counted from 1.
struct CsvRecord
{
    int line;
    QStringList cells;
};

/// One record with its line end.
QString csvLine(const QStringList &cells);
/// The records of a UTF-8 file; lines may end in LF or CR LF. A Failure names the path, the line
/// and what does not fit.
QVector<CsvRecord> readCsv(const QString &path);
