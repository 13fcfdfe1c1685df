#pragma once

#include <QString>
#include <QStringList>

/// The JSON Schemas (draft 2020-12) of what stands on disk, for editors. They refuse what a check of
/// descriptions tells of, as far as it can be seen in one value and its neighbours.
namespace DescriptionSchema {

/// What there is a schema of: process, config and folder.
QStringList names();
/// The schema as a JSON text. @p name is one of names().
QString text(const QString &name);

} // namespace DescriptionSchema
