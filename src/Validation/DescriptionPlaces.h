#pragma once

#include "Companion/TesselExport.h"
#include "Validation/DescriptionPlace.h"

#include <QString>
#include <QStringList>
#include <QVector>

#include <optional>

/// Finds elements in the texts of descriptions, for a reader who wants to see or change them there.
///
/// Reads what is on the disk now, whatever was parsed before. The functions share nothing, so that threads
/// may call them at once.
class TESSEL_EXPORT DescriptionPlaces
{
public:
    DescriptionPlaces() = delete;

    /// Which descriptions of a folder make the tree of the URL.
    enum class Kind {
        Process,      ///< `NAME.process.json`
        Configuration ///< `NAME.config.json`
    };

    /// The key of the element at @p url of the description at @p path; of the top level, which has none,
    /// where it begins. @p path names a file, whatever @p kind says, or a folder, in which a URL begins with
    /// the names of the folders and of the file. A key that stands twice is found where it counts. Of a
    /// configuration a URL with `#ROW,COLUMN` finds the cell of an array, where it begins. Nothing if there is no such element or no file that can be read.
    static std::optional<DescriptionPlace> find(const QString &path, const QString &url,
                                                DescriptionPlaces::Kind kind);
    /// find() of each of @p urls, in their order. Reads a file once for all of them.
    static QVector<std::optional<DescriptionPlace>> findAll(const QString &path,
                                                            const QStringList &urls,
                                                            DescriptionPlaces::Kind kind);
};
