#pragma once

#include "TesselModels/ShownSet_p.h"

#include <atomic>
#include <memory>

/// Hands the newest set from the helper thread to the display's, neither of which ever waits for the other.
class SetMailbox
{
public:
    SetMailbox() = default;
    ~SetMailbox() { take(); }

    SetMailbox(const SetMailbox &) = delete;
    SetMailbox &operator=(const SetMailbox &) = delete;

    /// What was put in and not taken yet, which is then no more in there; null if there is none.
    std::shared_ptr<const ShownSet> take()
    {
        const std::unique_ptr<Letter> letter(m_letter.exchange(nullptr));
        return letter ? letter->set : nullptr;
    }
    /// Only after take() by the same thread. True if the other one has to be told.
    bool put(const std::shared_ptr<const ShownSet> &set)
    {
        m_letter.store(new Letter{set});
        return !m_isAnnounced.exchange(true);
    }
    /// By whoever was told, before it takes: what is put in from here on is told anew.
    void beginTaking() { m_isAnnounced.store(false); }

private:
    struct Letter
    {
        std::shared_ptr<const ShownSet> set;
    };

    std::atomic<Letter *> m_letter{nullptr};
    std::atomic<bool> m_isAnnounced{false};
};
