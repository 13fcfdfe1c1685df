#pragma once

#include <QString>
#include <QtGlobal>

#include <atomic>

namespace Soak {

/// What the script and one of its processes tell each other: words in a file that both have mapped.
///
///     0        8        16
///     | ending | period | rounds of slot 0 | of slot 1 | ...
///
/// The script writes the first two, each process the word of its slot.
class SoakBoard
{
public:
    SoakBoard(const QString &fileName, int slot);
    ~SoakBoard();

    SoakBoard(const SoakBoard &) = delete;
    SoakBoard &operator=(const SoakBoard &) = delete;

    bool isEnding() const { return m_words[0] != 0; }
    /// The number of the time between two judgements.
    quint64 period() const { return m_words[1]; }
    /// One more thing is done: who does none stands still.
    void noteRound() { ++m_words[2 + m_slot]; }

private:
    using Word = std::atomic<quint64>;
    static_assert(sizeof(Word) == 8 && Word::is_always_lock_free);
    static constexpr int sm_words = 64;

    int m_slot;
    Word *m_words;
};

} // namespace Soak
