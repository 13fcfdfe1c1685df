#pragma once

#include "ProcessDataManagement/ProcessDataManager.h"
#include "torture/Stage.h"

#include <memory>
#include <random>

namespace Torture {

/// What a parent has when it forks, and what its child does with it.
class ForkedChild
{
public:
    /// What the forking thread is inside of.
    enum class Inside { Nothing, ReadLock, WriteLock };

    struct Inheritance
    {
        std::unique_ptr<ProcessDataManager> manager;
        std::unique_ptr<BufferHandlerInterface> handlerWithoutSemaphores;
        Inside inside = Inside::Nothing;
    };

    ForkedChild(Stage &stage, Plant plant, Inheritance &inheritance)
        : m_stage(stage)
        , m_plant(plant)
        , m_inheritance(inheritance)
    {
    }

    /// Forks, and waits for the end of the child. False if it found something, died or hangs; the
    /// stage tells what.
    bool run(quint64 seed) const;

private:
    bool behave(quint64 seed) const;
    bool expect(bool isTrue, const char *text) const;
    bool usesManager() const;
    bool awaitEnd(pid_t child) const;

    Stage &m_stage;
    Plant m_plant;
    Inheritance &m_inheritance;
};

} // namespace Torture
