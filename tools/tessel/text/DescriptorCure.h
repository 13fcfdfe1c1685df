#pragma once

#include <QString>

/// What helps where the system has no descriptor left for this process, for EMFILE and ENFILE; empty for any
/// other errno.
QString descriptorCure(int error);
