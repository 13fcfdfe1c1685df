#pragma once

#include "Configuration/ConfigurationAndProcessDataBase.h"

/// The layout of process descriptions, as plainly as the format can be read; to compare
/// ProcessDataBuilder with, whose names, results and messages these are.
class PlainBuilder
{
public:
    using BaseClassSharedPointer = ConfigurationAndProcessDataBase::BaseClassSharedPointer;

    bool buildProcessDataFromDir(const QString &keyPrefix, const QString &path, QString &key) const;

    bool buildProcessData(BaseClassSharedPointer &root, BaseClassSharedPointer &part,
                          const QString &name, int &size, int &offset) const;
    bool buildProcessDataFromFiles(const QString &rootPath, const QString &partPath,
                                   const QString &name, int &size, int &offset) const;
};
