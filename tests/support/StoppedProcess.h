#pragma once

#include "support/ChildProcess.h"

/// A child that has taken what it takes and stands still inside. Goes on, or dies, when told.
class StoppedProcess
{
public:
    explicit StoppedProcess(const ChildProcess::Body &body)
        : m_child(body)
        , m_isStopped(m_child.waitUntilReady() && m_child.stop())
    {
    }

    bool isStopped() const { return m_isStopped; }
    /// Ends what it had begun. Gives its exit code.
    int goOn()
    {
        m_child.resume();
        m_child.tell();
        return m_child.waitForExit();
    }
    bool die() { return m_child.kill(); }
    /// The one or the other. True if it came about.
    bool end(bool byDeath) { return byDeath ? die() : goOn() == 0; }

private:
    ChildProcess m_child;
    bool m_isStopped;
};

/// Both ways in which what a stopped process holds comes free.
inline void addWaysToEnd()
{
    QTest::addColumn<bool>("byDeath");

    QTest::newRow("goes on") << false;
    QTest::newRow("is killed") << true;
}
