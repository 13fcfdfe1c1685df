#include "live/AllRegions.h"

#include "Inspection/RegionInspection.h"
#include "text/DescriptorCure.h"
#include "text/Failure.h"

#include <cerrno>

namespace {

QString cureOf(int error)
{
    switch (error) {
    case EMFILE:
    case ENFILE: return descriptorCure(error);
    case EACCES:
    case EPERM: return QStringLiteral("run it as a user who may read that folder");
    case ENOENT:
    case ENOTDIR: return QStringLiteral("mount a tmpfs there");
    default: return QStringLiteral("look at its mount");
    }
}

} // namespace

QStringList keysOfAllRegions()
{
    QStringList keys;
    const int error = RegionInspection::findKeysWithStatus(keys);
    if (error != 0) {
        throw Failure{ExitCode::NoAccess,
                      QStringLiteral("cannot look for regions in /dev/shm: %1; %2")
                          .arg(qt_error_string(error), cureOf(error))};
    }
    return keys;
}
