#include "regions/DescribedRegion.h"

#include "Companion/ConfigurationAndProcessDataDefinitions.h"
#include "Companion/FileSearch.h"
#include "Companion/PropertyManagerConst.h"
#include "ProcessDataManagement/ProcessDataBufferHandler.h"

#include <QDateTime>
#include <QFileInfo>

#include <algorithm>
#include <cerrno>
#include <utility>

using Definitions = ConfigurationAndProcessDataDefinitions;

DescribedRegion DescribedRegion::of(const ConfigurationAndProcessDataBase &root,
                                    const QString &path, QString &problem)
{
    const QString key = root.getProperty(Definitions::getStrKeyProcessDataMemory()).toString();
    const int size = root.getProperty(Definitions::getKeyDataPropertySizeOfSharedMemory()).toInt();
    if (key.isEmpty() || size < 1) {
        problem = QStringLiteral(
                      "%1: describes no memory to follow; lay it out with 'tessel build'")
                      .arg(path);
        return {};
    }
    const bool isDoubleBuffered =
        root.getProperty(Definitions::getKeyDataPropertyDoubleBuffer()).toBool();
    return {path, key,
            ProcessDataBufferHandler(isDoubleBuffered)
                .calculateSizeSharedMemory(static_cast<unsigned int>(size)),
            isDoubleBuffered};
}

bool DescribedRegion::isMissing(const RegionInspection &region, const QString &key)
{
    if (!region.exists()) {
        return region.getError() == ENOENT;
    }
    // Between its making and its sizing a region is an empty file; a pipe or a folder never becomes one.
    return region.getError() == EINVAL
           && QFileInfo(QStringLiteral("/dev/shm/%1SharedMemory").arg(key)).isFile();
}

bool DescribedRegion::isPublished(const RegionInspection &region) const
{
    // A single buffer has no count of sets. Of one that cannot be read the reason is told later.
    if (!region.isReadable()) {
        return true;
    }
    if (!isDoubleBuffered) {
        return region.getLock().state != RegionLock::State::Unknown;
    }
    if (region.isDoubleBuffer() == true) {
        return region.getSwapCount() != quint64{0};
    }
    // Without a management block it is being made, or is another description's.
    return region.getSize() != regionSize;
}

QString DescribedRegion::problemOf(const RegionInspection &region) const
{
    if (!region.isReadable()) {
        return QStringLiteral(
                   "region '%1' cannot be opened: %2; run this program as a user who may")
            .arg(key, region.getErrorString());
    }
    const RegionInspection alone(key);
    if (alone.isDoubleBuffer() == true && !alone.getSwapCount()) {
        return QStringLiteral("region '%1' has another version of the memory format; run all "
                              "programs with one version of the library")
            .arg(key);
    }
    if (region.getSize() != regionSize || region.hasLayoutOfDescription() == false) {
        const QString first = region.findFirstDifference();
        return QStringLiteral("region '%1' was made from another description than %2%3; give this "
                              "program the one that its creator has")
            .arg(key, path,
                 first.isEmpty() ? QString() : QStringLiteral(", from '%1' on").arg(first));
    }
    return {};
}

QString DescribedRegion::stampOf(const QString &path)
{
    QFileInfoList files;
    if (QFileInfo(path).isDir()) {
        searchFilesOnPathRecursive(
            path,
            {QStringLiteral("*.") + PropertyManagerConst::getProcessDataDescriptionFileExtension()},
            files);
    } else {
        files.append(QFileInfo(path));
    }
    QString stamp;
    for (const auto &file : std::as_const(files)) {
        stamp += QStringLiteral("%1 %2 %3\n")
                     .arg(file.filePath(), QString::number(file.size()),
                          QString::number(file.lastModified().toMSecsSinceEpoch()));
    }
    return stamp;
}

int intervalOfLooks(bool isAttached, int failures)
{
    constexpr int afterAttached = 1000;
    constexpr int usual = 500;
    constexpr int mostDoublings = 4;
    return isAttached ? afterAttached : usual << std::min(failures, mostDoublings);
}
