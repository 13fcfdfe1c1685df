#include "Configuration/FramingSilence_p.h"

namespace {

thread_local bool isSilent = false;

} // namespace

FramingSilence::FramingSilence() : m_wasKept(isSilent)
{
    isSilent = true;
}

FramingSilence::~FramingSilence()
{
    isSilent = m_wasKept;
}

bool FramingSilence::isKept()
{
    return isSilent;
}
