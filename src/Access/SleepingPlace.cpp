#include "Access/SleepingPlace_p.h"
#include "Companion/Exchange/Identity_p.h"

#include <atomic>
#include <map>

namespace {

/// All places of one process.
struct Places
{
    explicit Places(const Places *parents) : former(parents) { }

    const quint16 process = Identity::generation();
    /// A child leaves those of its parent alone: their mutex may be locked for ever.
    const Places *const former;

    std::mutex mutex;
    std::map<MappedMemory, std::weak_ptr<SleepingPlace>> byMemory;
};

Places &placesOfThisProcess()
{
    // Never destroyed: a static object of the program may still wait.
    static std::atomic<Places *> current{nullptr};
    Places *known = current.load(std::memory_order_acquire);
    while (known == nullptr || known->process != Identity::generation()) {
        auto made = std::make_unique<Places>(known);
        if (current.compare_exchange_strong(known, made.get(), std::memory_order_acq_rel)) {
            known = made.release();
        }
    }
    return *known;
}

bool isFoundByAddress(const MappedMemory &memory)
{
    return memory.first.isEmpty();
}

} // namespace

std::shared_ptr<SleepingPlace> SleepingPlace::of(const SetWaiting::Management *words)
{
    MappedName name(words);
    Places &places = placesOfThisProcess();
    const std::lock_guard lock(places.mutex);
    for (auto entry = places.byMemory.begin(); entry != places.byMemory.end();) {
        entry = entry->second.expired() ? places.byMemory.erase(entry) : std::next(entry);
    }
    std::weak_ptr<SleepingPlace> &known = places.byMemory[name.memory()];
    auto place = known.lock();
    if (!place) {
        place = std::make_shared<SleepingPlace>(std::move(name));
        known = place;
        return place;
    }
    // Whoever comes later looks at once, as if alone.
    const std::lock_guard placeLock(place->mutex);
    place->m_nextLook = Clock::now();
    return place;
}

bool SleepingPlace::enterKernel(const void *watcher)
{
    if (m_sleeper != nullptr) {
        return false;
    }
    m_sleeper = watcher;
    return true;
}

void SleepingPlace::leaveKernel()
{
    m_sleeper = nullptr;
    changed.notify_all();
}

bool SleepingPlace::isRegionGone(const SetWaiting::Management &words)
{
    if (m_isRegionGone) {
        return true;
    }
    const auto now = Clock::now();
    if (now < m_nextLook) {
        return false;
    }
    m_nextLook = now + SetWaiting::sm_slice;
    // A place that was found by the address alone is that of one mapping, which its watchers keep: what is
    // mapped there is the same at each look.
    if (isFoundByAddress(m_name.memory())) {
        m_name = MappedName(&words);
    }
    if (m_name.isCurrent()) {
        return false;
    }
    m_isRegionGone = true;
    m_lastGeneration = words.swapCount.load(std::memory_order_acquire);
    return true;
}
