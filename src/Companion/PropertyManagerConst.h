#pragma once

#include "Companion/TesselExport.h"

#include <QString>

/// File names of descriptions.
///
/// The references stay valid until the process ends and may be taken from any thread, also while
/// static objects are still being constructed.
class TESSEL_EXPORT PropertyManagerConst
{
public:
    PropertyManagerConst() = delete;

    /// Postfix of configuration files, two pieces without a leading dot.
    static const QString &getConfigFileExtension();
    /// Postfix of process description files, two pieces without a leading dot.
    static const QString &getProcessDataDescriptionFileExtension();
    /// Complete name of the file that describes the folder it lies in.
    static const QString &getMenuFolderDescriptionFilename();
};
