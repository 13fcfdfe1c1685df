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
    /// In which trees travel.
    using BaseClassSharedPointer = ConfigurationAndProcessDataBase::BaseClassSharedPointer;

    /// One file of a directory during a build.
    struct SharedMemoryData
    {
        /// the parsed file
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
    /// First step: every leaf of the part moves by the size of the root, which goes to @p offset.
    bool adaptOffsetOfSharedMemoryInPart(const BaseClassSharedPointer &root,
                                         BaseClassSharedPointer &part, int &offset) const;
    /// Second step: the root grows by the part, whose own size goes to @p size.
    bool adaptSizeOfSharedMemoryInRoot(BaseClassSharedPointer &root,
                                       const BaseClassSharedPointer &part, int &size) const;
    /// Third step: the part gets a display position and loses what only a root has.
    bool addAndRemovePropertiesForTreeNodeInPart(const BaseClassSharedPointer &root,
                                                 BaseClassSharedPointer &part) const;
    /// Last step: hangs the part in, in the place of a child that has the name already.
    bool addPartToRoot(BaseClassSharedPointer &root, const BaseClassSharedPointer &part,
                       const QString &name) const;

    // Laying out a directory.
    /// Gives every leaf its offset and every file the same size and key, and rewrites the files in
    /// which something changed. An empty @p key is found or made, another one is imposed.
    bool buildProcessDataFromDir(const QString &keyPrefix, const QString &path, QString &key) const;
    /// Parses the files and gives their leaves offsets from @p offset on, which is moved along.
    bool updateOffsetFromDir(const QList<QFileInfo> &files, int &offset,
                             QVector<ProcessDataBuilder::SharedMemoryData> &records) const;
    /// Gives all records size and key and rewrites the files in which something changed.
    bool updateSizeAndKeyFromDir(const QString &keyPrefix, const QString &path, QString &key,
                                 const int &size,
                                 QVector<ProcessDataBuilder::SharedMemoryData> &records) const;
    /// The key of the first record if it fits prefix and directory, else a new one.
    bool getSharedMemoryKeyForDir(const QString &keyPrefix, const QString &path,
                                  const QVector<ProcessDataBuilder::SharedMemoryData> &records,
                                  QString &key) const;
    /// Gives the leaves of one file their offsets; @p endOffset is the byte behind the last.
    bool setOffsetFromSharedMemory(const BaseClassSharedPointer &root, int startOffset,
                                   int &endOffset, bool &changed) const;
    /// Gives one record size and key, without writing its file.
    bool setSizeAndKeyFromSharedMemory(int size, const QString &key,
                                       ProcessDataBuilder::SharedMemoryData &record) const;
    /// Sets an existing property; @p changed tells whether it had another value.
    bool setPropertyFromSharedMemory(const BaseClassSharedPointer &element, const QString &property,
                                     const QVariant &value, bool &changed) const;

private:
    static const QStringList &sm_PropertiesToRemove;
};
