#pragma once

#include "Companion/BufferHandlerInterface.h"
#include "Companion/Exchange/SharedBytes_p.h"

#include <atomic>

// Sets of words that all hold one number, which every writer counts on by one. A set that two
// writers fill at once shows as a mixture, one that gets lost as a number that is too low at the end.

constexpr quint32 countedWords = 32;
constexpr quint32 countedSetSize = countedWords * sizeof(quint64);

inline void storeWords(unsigned char *buffer, quint32 first, quint32 last, quint64 number)
{
    for (quint32 i = first; i < last; ++i) {
        storeShared(buffer + i * sizeof(quint64), number);
    }
}

/// Counts on without publishing.
inline bool writeNextSet(BufferHandlerInterface &handler)
{
    unsigned char *const buffer = handler.lockForWrite();
    if (buffer == nullptr) {
        return false;
    }
    storeWords(buffer, 0, countedWords, loadShared<quint64>(buffer) + 1);
    return handler.unlockForWrite(buffer);
}

inline bool publishNextSet(BufferHandlerInterface &handler)
{
    return writeNextSet(handler) && handler.swapBuffers();
}

/// Publishes so many sets, or fails.
inline bool publishSets(BufferHandlerInterface &handler, int count)
{
    bool published = true;
    for (int i = 0; i < count; ++i) {
        published = publishNextSet(handler) && published;
    }
    return published;
}

/// What a reader found in the sets that the handler called reliable.
struct ReadFindings
{
    quint64 last = 0; ///< number of the last one
    int mixed = 0;
    int backward = 0; ///< older than the one before
    int failed = 0;   ///< locks and unlocks

    bool areSound() const { return mixed == 0 && backward == 0 && failed == 0; }
};

/// One attempt at a set. True if it was reliable.
inline bool readSet(BufferHandlerInterface &handler, ReadFindings &findings)
{
    unsigned char *const buffer = handler.lockForRead();
    if (buffer == nullptr) {
        ++findings.failed;
        return false;
    }
    const auto number = loadShared<quint64>(buffer);
    bool isMixed = false;
    for (quint32 i = 1; i < countedWords; ++i) {
        isMixed = loadShared<quint64>(buffer + i * sizeof(quint64)) != number || isMixed;
    }
    bool repeat = false;
    if (!handler.unlockForRead(buffer, repeat)) {
        ++findings.failed;
    }
    if (repeat) {
        return false;
    }
    findings.mixed += isMixed ? 1 : 0;
    findings.backward += number < findings.last ? 1 : 0;
    findings.last = number;
    return true;
}

/// Reads sets as long as there are writers, and then the last one.
inline void readSets(BufferHandlerInterface &handler, const std::atomic<int> &writersLeft,
                     ReadFindings &findings)
{
    while (writersLeft.load() > 0) {
        readSet(handler, findings);
    }
    // The third attempt at the latest is reliable.
    for (int attempt = 0; attempt < 3 && !readSet(handler, findings); ++attempt) { }
}
