#pragma once

#include "Configuration/ConfigurationAndProcessDataBase.h"

/// Reads and writes the table that @p url names, or the one of which it names a cell, in every way
/// that there is. What a wrapper took in is in it, and in the tree after it was written back.
void checkTable(const ConfigurationAndProcessDataBase::BaseClassSharedPointer &root,
                const QString &url, const QVariant &value);
