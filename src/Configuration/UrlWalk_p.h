#pragma once

#include "Configuration/ConfigurationAndProcessDataBase.h"

#include <QStringView>

/// True for an element of the node class itself. An element of a class derived from it may answer
/// in its own way, and has to be asked.
bool isOfNodeClass(const ConfigurationAndProcessDataBase &element);

/// Follows @p url down from @p node, which is of the node class itself, for as long as one look-up
/// after the other is all there is to do.
///
/// The entry that it comes to, and in @p url the pieces that are left: none at the end, some at an
/// element that has to be asked itself, or at one that is null. Null if an entry is missing, or if
/// the URL has no pieces.
const ConfigurationAndProcessDataBase::BaseClassSharedPointer *followUrl(
    const ConfigurationAndProcessDataBase &node, QStringView &url);

/// The pieces of a URL; empty ones do not count.
QStringList splitUrl(QStringView url);
