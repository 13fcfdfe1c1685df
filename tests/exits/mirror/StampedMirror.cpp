// tessel-mirror as it is, but for a look at the clock behind each set that its receiver shows, so that it is known when
// readers of the mirror see a set, and not only when one of them has woken up. Of each set whose first leaf holds when it
// was published, as that of the traffic does, the file in TESSEL_MIRROR_STAMPS gets the nanoseconds since then, eight
// bytes as they lie here.
//
// The linker leads the call here (--wrap): not a line of the program is another one.
#include "mirror/MirroredRegion.h"

#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include <fcntl.h>
#include <unistd.h>

// As a member is called: the object comes first.
bool showUnstamped(MirroredRegion *region, const unsigned char *bytes, ByteOrder::Order order) asm(
    "__real__ZN14MirroredRegion4showEPKhN9ByteOrder5OrderE");
bool showStamped(MirroredRegion *region, const unsigned char *bytes, ByteOrder::Order order) asm(
    "__wrap__ZN14MirroredRegion4showEPKhN9ByteOrder5OrderE");

bool showStamped(MirroredRegion *region, const unsigned char *bytes, ByteOrder::Order order)
{
    const bool isShown = showUnstamped(region, bytes, order);
    const std::int64_t now = std::chrono::duration_cast<std::chrono::nanoseconds>(
                                 std::chrono::steady_clock::now().time_since_epoch())
                                 .count();
    static const char *const name = std::getenv("TESSEL_MIRROR_STAMPS");
    static const int file = name == nullptr
                                ? -1
                                : ::open(name, O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0600);
    std::int64_t published = 0;
    if (isShown && region->layout().bufferSize >= sizeof published) {
        std::memcpy(&published, bytes, sizeof published);
        const std::int64_t passed = now - published;
        // Whoever misses one complains.
        (void)!::write(file, &passed, sizeof passed);
    }
    return isShown;
}
