#pragma once

#include "Configuration/ConfigurationAndProcessDataBase.h"

/// What a write that only answers yes or no makes of a status: the value stands there.
inline bool isSuccess(ConfigurationAndProcessDataBase::SetValueStatus status)
{
    return status < ConfigurationAndProcessDataBase::SetValueTargetMissing;
}
