#include "PlantedFault.h"

#include "FuzzTarget.h"

#include <limits>
#include <vector>

namespace {

using Fault = void (*)();

// No optimiser may see through these.
volatile int one = 1;
unsigned char *volatile forgotten = nullptr;

void breakPromise()
{
    require(one == 0, "nothing is planted");
}

void readBehindTheEnd()
{
    const std::vector<unsigned char> bytes(16);
    one = bytes.data()[15 + one] == 0 ? 1 : 2;
}

void leak()
{
    forgotten = new unsigned char[64];
    forgotten = nullptr;
}

void overflow()
{
    one = std::numeric_limits<int>::max() + one;
}

void goOnForever()
{
    while (one != 0) {
        one = 1;
    }
}

struct NamedFault
{
    const char *name;
    Fault fault;
};

const NamedFault faults[] = {{"promise", breakPromise},
                             {"overrun", readBehindTheEnd},
                             {"leak", leak},
                             {"undefined", overflow},
                             {"endless", goOnForever}};

Fault planted = nullptr;

} // namespace

bool PlantedFault::plant(const QByteArray &name)
{
    for (const NamedFault &candidate : faults) {
        if (name == candidate.name) {
            planted = candidate.fault;
            return true;
        }
    }
    return false;
}

void PlantedFault::meet()
{
    if (planted != nullptr) {
        planted();
    }
}
