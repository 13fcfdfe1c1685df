#pragma once

#include "torture/Actor.h"
#include "torture/TortureMode.h"

#include <memory>
#include <vector>

namespace Torture {

/// One thread that uses many regions at once: finishes sets in all of them, and reads in all of them,
/// before it comes back to the first.
class RegionsMode : public TortureMode
{
public:
    explicit RegionsMode(const Options &options);

private:
    /// What becomes of a set that was finished and not yet published.
    enum class Fate {
        Kept,
        Overtaken, ///< another writer's swap publishes it, with a newer one
        TakenBack,
        /// The same, and its writer tries in vain to write another one.
        TakenBackInVain
    };

    void playRound() override;
    QString figures() const override;

    void finishSets();
    void chooseFates();
    void meetFates();
    void tryInVain(int region);
    void swapAll();
    void readAll();
    void leaveAll();
    void expect(bool isTrue, const char *text, int region);
    int count() const { return m_options.regions; }

    std::vector<std::unique_ptr<NamedRegion>> m_owned;
    std::vector<const NamedRegion *> m_regions;
    std::unique_ptr<Actor> m_first;
    std::unique_ptr<Actor> m_second;
    std::vector<Fate> m_fates;
    quint64 m_fateCounts[4] = {};
};

} // namespace Torture
