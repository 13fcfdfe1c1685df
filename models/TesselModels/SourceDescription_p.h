#pragma once

#include "Configuration/ConfigurationAndProcessDataBase.h"
#include "ProcessData/Linux/ProcessDataValue.h"
#include "regions/DescribedRegion.h"

#include <QMetaType>
#include <QString>
#include <QStringList>
#include <QVariant>
#include <QVector>

#include <memory>
#include <vector>

/// What a description says of one process value.
struct SourceLeaf
{
    QString url;
    QString name;                                     ///< last piece of the URL
    QString type;                                     ///< name of the data type, such as `float`
    QMetaType::Type content = QMetaType::UnknownType; ///< how its value is held
    int textIndex = -1;                               ///< of a text: which one in a set
    QString unit;
    QString label;            ///< identifier of the text to show; empty: none
    QVariant minimum;         ///< invalid: not given
    QVariant maximum;         ///< invalid: not given
    QVariant displayPosition; ///< invalid: not given
    QStringList entries;      ///< what a selector selects from, by index
    bool isReadOnly = false;  ///< only the creator of the region writes it

    bool operator==(const SourceLeaf &other) const;
};

/// The process values of a description, without a way to the memory: shared between threads, never changed.
struct SourceDescription
{
    std::vector<SourceLeaf> leaves; ///< in the order of their display positions
    QHash<QString, int> leafAt;     ///< by URL
    int textCount = 0;

    QStringList urls() const;
    /// The leaf at @p url, with whatever slashes that do not count; -1 if there is none.
    int find(const QString &url) const;
};

/// A description as it was read from the disk, with the tree that is bound to the memory.
struct DescriptionReading : DescribedRegion
{
    ConfigurationAndProcessDataBase::BaseClassSharedPointer root;
    /// Of the leaves of the description, in their order. Null: it has no usable slot.
    QVector<ProcessDataValueSharedPointer> elements;
    std::shared_ptr<const SourceDescription> description;
    QString problem; ///< not empty: there is nothing to follow, and what to do

    static DescriptionReading read(const QString &path);
};
