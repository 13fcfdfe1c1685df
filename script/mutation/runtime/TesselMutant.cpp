#include "TesselMutant.h"

#include <cstdlib>
#include <cstring>

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

// TESSEL_MUTANT is the number of the change to make, or the path of a file with one byte a change, in
// which every process notes what it reaches. The file is mapped and shared, so that neither fork,
// exec nor a death by SIGKILL loses a note.
extern "C" {
__attribute__((visibility("default"))) unsigned tesselMutantChosen = 0;
}

namespace {

constexpr unsigned noting = ~0U;

unsigned char *notes = nullptr;
unsigned noteCount = 0;

void mapNotes(const char *path)
{
    const int file = open(path, O_RDWR | O_CLOEXEC);
    if (file < 0) {
        return;
    }
    struct stat status = {};
    if (fstat(file, &status) == 0 && status.st_size > 0) {
        void *const memory = mmap(nullptr, static_cast<size_t>(status.st_size),
                                  PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
        if (memory != MAP_FAILED) {
            notes = static_cast<unsigned char *>(memory);
            noteCount = static_cast<unsigned>(status.st_size);
            tesselMutantChosen = noting;
        }
    }
    close(file);
}

// Before the static objects of the library, which may hold changes themselves.
__attribute__((constructor(101))) void readChoice()
{
    const char *const text = std::getenv("TESSEL_MUTANT");
    if (!text || !*text) {
        return;
    }
    if (*text == '/') {
        mapNotes(text);
    } else {
        tesselMutantChosen = static_cast<unsigned>(std::strtoul(text, nullptr, 10));
    }
}

} // namespace

extern "C" __attribute__((visibility("default"))) bool tesselMutantAsked(unsigned number) noexcept
{
    if (tesselMutantChosen != noting) {
        return tesselMutantChosen == number;
    }
    if (number < noteCount && notes[number] == 0) {
        notes[number] = 1;
    }
    return false;
}
