#pragma once

#include "configuration/ConfigurationSource.h"

#include <QList>
#include <QString>

/// What a write-back left in a file and in the record of the process.
struct ConfigurationStamp
{
    QString instanceName;
    QString modifiedBy;
    QString lastModified;
};

/// Refuses, by a Failure, a file that updateFile() would not begin to write.
void requireUpdatable(const ConfigurationFile &file);

/// Stamps the tree of one file and writes it back; no other file of the configuration is touched.
/// Empty if the file has no place for a stamp.
///
/// The file is read back. Where the new text did not get there whole, the former one is put back
/// and a Failure says so.
QList<ConfigurationStamp> updateFile(const ConfigurationSource &source,
                                     const ConfigurationFile &file);
