#pragma once

#include <QByteArray>
#include <QString>

/// Puts @p text in the place of the file at @p path at once; owner, group and mode stay as far as the
/// system allows. False if it could not be written whole; then the file is as it was.
bool replaceFile(const QString &path, const QByteArray &text);
