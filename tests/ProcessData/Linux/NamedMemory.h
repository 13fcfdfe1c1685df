#pragma once

#include "ProcessData/Linux/SharedMemory.h"

#include <memory>

inline char *bytesOf(SharedMemory &memory)
{
    return static_cast<char *>(memory.data());
}

inline std::unique_ptr<SharedMemory> memoryNamed(const QString &name)
{
    auto memory = std::make_unique<SharedMemory>();
    memory->setKey(name);
    return memory;
}
