#pragma once

#include "torture/NamedRegion.h"
#include "torture/TortureMode.h"

namespace Torture {

/// Processes whose threads are inside locks and managers while one of them forks. Every child must
/// behave as unlocked and new, and must not take anything from its parent.
class ForkMode : public TortureMode
{
public:
    explicit ForkMode(const Options &options);

private:
    void playRound() override;
    QString figures() const override;

    int beParent(quint64 seed);

    NamedRegion m_region; ///< whose semaphores are removed
    SemaphoreSet m_semaphores;
    SegmentFile m_segment;
    quint64 m_children = 0;
};

} // namespace Torture
