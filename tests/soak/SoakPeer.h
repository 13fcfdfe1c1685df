#pragma once

#include "soak/SoakBoard.h"
#include "soak/SoakLeaks.h"
#include "soak/SoakRegion.h"

#include <QString>
#include <QStringList>

#include <memory>
#include <random>

class ProcessDataWatcher;

namespace Soak {

/// One process of the soak: uses the library over and over until the board asks it to end, and checks each
/// set that it reads.
class SoakPeer
{
public:
    struct Start
    {
        QString role; ///< as in SoakPeer.cpp
        RegionName region;
        QString board;
        int slot;
        QStringList plants; ///< what it does wrong on purpose
    };

    explicit SoakPeer(const Start &start);
    /// Until it is asked to end. The exit code of the process; 3 behind a fault, which it tells.
    int run();

private:
    struct Role
    {
        const char *name;
        void (SoakPeer::*work)();
    };
    static const Role sm_roles[];

    void own();
    void create();
    void write();
    void read();
    void visit();
    void watch();

    bool canGoOn() const;
    std::unique_ptr<SoakRegion> attached();
    void publishOnce(SoakRegion &region);
    void readOnce(SoakRegion &region);
    bool watchOnce(ProcessDataWatcher &watcher, quint64 &seen);
    void noteRound();
    void rest();

    const Start m_start;
    SoakBoard m_board;
    SoakLeaks m_leaks;
    std::mt19937_64 m_random;
    quint64 m_rounds = 0;
    QString m_fault;
};

} // namespace Soak
