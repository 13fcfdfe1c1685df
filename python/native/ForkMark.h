#pragma once

#include "native/Failure.h"

/// By which an object sees that it is in a child of the process that made it. There the threads of the parent
/// are gone, and whatever they held stays held.
class ForkMark
{
public:
    ForkMark();

    bool isInChild() const;
    /// Throws a Failure in a child.
    void requireOwnProcess() const;

private:
    unsigned int m_forks;
};
