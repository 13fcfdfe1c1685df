#pragma once

#include "support/SharedRegion.h"
#include "torture/SharedLedger.h"

#include <QtGlobal>

#include <atomic>

namespace Torture {

/// Where a process stands that is led through its work instruction by instruction.
enum class Step : quint32 { Before, Entering, Inside, Leaving, Swapping, Joining, Ended };
constexpr int stepCount = 7;

/// One order to an actor and its answer.
struct Desk
{
    std::atomic<quint32> act;
    std::atomic<quint32> region;
    std::atomic<qint64> argument;
    std::atomic<qint64> answer;
    std::atomic<bool> isBegun;
    std::atomic<qint32> process;
};

constexpr int deskCount = 5;

/// Memory between the driver of a mode and the processes that it forks. All zero at first.
struct Stage
{
    std::atomic<Step> step;
    std::atomic<qint64> result; ///< of a process that was led to its end
    /// Warnings that a finished set was taken back, from all processes.
    std::atomic<quint32> lossWarnings;
    bool isDeaf; ///< Plant::Unwarned: none of them is counted
    Desk desks[deskCount];
    char failure[textCapacity];
    char lastMessage[textCapacity]; ///< of the library
};

class StageMapping
{
public:
    StageMapping() : m_mapping(sizeof(Stage)) { }

    Stage &operator*() const { return *stage(); }
    Stage *operator->() const { return stage(); }

private:
    Stage *stage() const { return reinterpret_cast<Stage *>(m_mapping.start()); }

    SharedMapping m_mapping;
};

/// From here on the messages of this process go to the stage.
void tellStage(Stage &stage);

void copyText(char (&target)[textCapacity], const QString &text);

} // namespace Torture
