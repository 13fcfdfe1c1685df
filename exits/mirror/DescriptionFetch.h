#pragma once

#include "mirror/HeldEnd.h"
#include "mirror/MirrorDomain.h"

#include <QString>

/// Asks for the description of the region @p key, waits for it as many milliseconds (0: without an end), and
/// writes it into @p folder. Gives its path; throws a Refusal, with nothing written. It may be ended while it waits, and
/// not while it writes.
QString fetchDescription(const MirrorDomain &domain, const QString &key, const QString &folder,
                         int milliseconds, const HeldEnd &held);
