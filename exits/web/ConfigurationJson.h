#pragma once

#include <QByteArray>
#include <QString>

/// The values of a configuration, a file or a folder, as they stand on the disk, as JSON: each with the stamp
/// of its file, who modified it and when. Throws a Refusal that names the path and the reason.
QByteArray configurationAsJson(const QString &path);
