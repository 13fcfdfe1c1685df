#pragma once

#include "ProcessDataManagement/ManagerInternals.h"
#include "support/FakeBufferHandler.h"

#include <functional>

/// Tells a test of every operation while it runs, and may fail to swap.
class WatchedBufferHandler : public FakeBufferHandler
{
public:
    using FakeBufferHandler::FakeBufferHandler;

    std::function<void()> onCall = [] {};
    bool swapFails = false;

    BufferPointer lockForRead() override
    {
        onCall();
        return FakeBufferHandler::lockForRead();
    }
    bool unlockForRead(BufferPointer buffer, bool &repeat) override
    {
        onCall();
        return FakeBufferHandler::unlockForRead(buffer, repeat);
    }
    BufferPointer lockForWrite() override
    {
        onCall();
        return FakeBufferHandler::lockForWrite();
    }
    bool unlockForWrite(BufferPointer buffer) override
    {
        onCall();
        return FakeBufferHandler::unlockForWrite(buffer);
    }
    bool swapBuffers() override
    {
        onCall();
        return FakeBufferHandler::swapBuffers() && !swapFails;
    }
};

/// A manager over a handler that does what the test tells it.
struct ManagedHandler
{
    ManagedHandler() { internals.setBufferHandler(handler); }

    QSharedPointer<WatchedBufferHandler> handler = QSharedPointer<WatchedBufferHandler>::create(16);
    ProcessDataManager manager;
    ManagerInternals internals{manager};
};
