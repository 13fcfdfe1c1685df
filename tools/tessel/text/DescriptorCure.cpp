#include "text/DescriptorCure.h"

#include <cerrno>

QString descriptorCure(int error)
{
    switch (error) {
    case EMFILE: return QStringLiteral("allow more of them with 'ulimit -n'");
    case ENFILE:
        return QStringLiteral("end programs, or allow more of them by 'sysctl fs.file-max'");
    default: return {};
    }
}
