#pragma once

#include "Configuration/ConfigurationAndProcessDataBase.h"
#include "Configuration/ConfigurationAndProcessDataParser.h"

#include <QFileInfo>
#include <QList>
#include <QSharedPointer>
#include <QString>
#include <QStringList>
#include <QVariant>
#include <QVector>

/// Gives process descriptions their place in one region: offsets, total size and memory key.
///
/// Either one part is merged into a root description, or all files of a directory are laid out one
/// behind the other. Has no state; nobody else may change the trees and files meanwhile. Sizes and
/// offsets are in bytes.
class TESSEL_EXPORT ProcessDataBuilder
{
public:
    using BaseClassSharedPointer = ConfigurationAndProcessDataBase::BaseClassSharedPointer;

    /// One file of a directory during a build.
    struct SharedMemoryData
    {
        BaseClassSharedPointer root;
        ConfigurationAndProcessDataParser parser; ///< that read the file and frames it later
        QString filePath;                         ///< absolute
        bool modified = false;                    ///< the tree differs from what the file holds
    };

    ProcessDataBuilder() = default;
    virtual ~ProcessDataBuilder();

    // Merging a part into a root.
    /// Shifts the part's offsets behind the root's end, adds its size to the root's and hangs it in
    /// under @p name. There is no way back after a failure.
    bool buildProcessData(BaseClassSharedPointer &root, BaseClassSharedPointer &part,
                          const QString &name, int &size, int &offset) const;
    /// The same on files; the root file is written back.
    bool buildProcessDataFromFiles(const QString &rootPath, const QString &partPath,
                                   const QString &name, int &size, int &offset) const;
    bool adaptOffsetOfSharedMemoryInPart(const BaseClassSharedPointer &root,
                                         BaseClassSharedPointer &part, int &offset) const;
    bool adaptSizeOfSharedMemoryInRoot(BaseClassSharedPointer &root,
                                       const BaseClassSharedPointer &part, int &size) const;
    bool addAndRemovePropertiesForTreeNodeInPart(const BaseClassSharedPointer &root,
                                                 BaseClassSharedPointer &part) const;
    bool addPartToRoot(BaseClassSharedPointer &root, const BaseClassSharedPointer &part,
                       const QString &name) const;

    // Laying out a directory.
    /// Gives every leaf its offset and every file the same size and key, and rewrites the files in
    /// which something changed. An empty @p key is found or made, another one is imposed.
    bool buildProcessDataFromDir(const QString &keyPrefix, const QString &path, QString &key) const;
    bool updateOffsetFromDir(const QList<QFileInfo> &files, int &offset,
                             QVector<ProcessDataBuilder::SharedMemoryData> &records) const;
    bool updateSizeAndKeyFromDir(const QString &keyPrefix, const QString &path, QString &key,
                                 const int &size,
                                 QVector<ProcessDataBuilder::SharedMemoryData> &records) const;
    bool getSharedMemoryKeyForDir(const QString &keyPrefix, const QString &path,
                                  const QVector<ProcessDataBuilder::SharedMemoryData> &records,
                                  QString &key) const;
    bool setOffsetFromSharedMemory(const BaseClassSharedPointer &root, int startOffset,
                                   int &endOffset, bool &changed) const;
    bool setSizeAndKeyFromSharedMemory(int size, const QString &key,
                                       ProcessDataBuilder::SharedMemoryData &record) const;
    bool setPropertyFromSharedMemory(const BaseClassSharedPointer &element, const QString &property,
                                     const QVariant &value, bool &changed) const;

private:
    static const QStringList sm_PropertiesToRemove;
};
