#include "support/HeapWatch.h"

#include <atomic>

#include <malloc.h>

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
# define HEAP_OF_A_SANITIZER
#elif defined(__has_feature)
# if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#  define HEAP_OF_A_SANITIZER
# endif
#endif

namespace {

std::atomic<qint64> taken{0};
std::atomic<qint64> held{0};
std::atomic<qint64> peak{0};

[[maybe_unused]] void *noteTaken(void *block)
{
    const auto size = static_cast<qint64>(malloc_usable_size(block));
    taken += size;
    const qint64 nowHeld = held += size;
    qint64 formerPeak = peak;
    while (formerPeak < nowHeld && !peak.compare_exchange_weak(formerPeak, nowHeld)) { }
    return block;
}

[[maybe_unused]] void noteGivenBack(void *block)
{
    held -= static_cast<qint64>(malloc_usable_size(block));
}

} // namespace

HeapWatch::HeapWatch() : m_takenBefore(taken), m_heldBefore(held)
{
    peak = m_heldBefore;
}

qint64 HeapWatch::takenBytes() const
{
    return taken - m_takenBefore;
}

qint64 HeapWatch::peakBytes() const
{
    return peak - m_heldBefore;
}

#ifdef HEAP_OF_A_SANITIZER

bool HeapWatch::canWatch()
{
    return false;
}

#else

bool HeapWatch::canWatch()
{
    return true;
}

// The C library offers its own under these names to whoever stands in front of it.
extern "C" {

void *__libc_malloc(std::size_t size);
void *__libc_calloc(std::size_t count, std::size_t size);
void *__libc_realloc(void *block, std::size_t size);
void *__libc_memalign(std::size_t alignment, std::size_t size);
void __libc_free(void *block);

void *malloc(std::size_t size) noexcept
{
    return noteTaken(__libc_malloc(size));
}

void *calloc(std::size_t count, std::size_t size) noexcept
{
    return noteTaken(__libc_calloc(count, size));
}

void *realloc(void *block, std::size_t size) noexcept
{
    // Both are there while the contents are copied.
    const auto former = static_cast<qint64>(malloc_usable_size(block));
    void *const moved = __libc_realloc(block, size);
    if (moved != nullptr || size == 0) {
        noteTaken(moved);
        held -= former;
    }
    return moved;
}

void *memalign(std::size_t alignment, std::size_t size) noexcept
{
    return noteTaken(__libc_memalign(alignment, size));
}

void *aligned_alloc(std::size_t alignment, std::size_t size) noexcept
{
    return noteTaken(__libc_memalign(alignment, size));
}

void free(void *block) noexcept
{
    noteGivenBack(block);
    __libc_free(block);
}
}

#endif
