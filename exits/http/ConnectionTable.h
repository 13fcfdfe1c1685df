#pragma once

#include <QHash>

#include <chrono>

/// Which connections there are, by their descriptors: how many are answered at once, and how long each may take.
/// It closes none, but shuts those down whose time is over.
class ConnectionTable
{
public:
    enum class Place {
        Admitted, ///< within the limit
        Heard,    ///< above it: what it asks is refused, unless there is room by then
        Refused   ///< above it, and there are too many such already
    };

    /// Holds for connections and requests that come from now on.
    void setLimits(int connections, std::chrono::seconds time);
    std::chrono::seconds time() const { return m_time; }

    Place add(int descriptor);
    void remove(int descriptor);
    /// Whether it is within the limit, or is from now on because there is room again.
    bool admit(int descriptor);

    /// The time of a request begins, unless it did already.
    void beginRequest(int descriptor);
    /// The answer is on its way.
    void beginAnswer(int descriptor);
    /// The time of silence begins.
    void endRequest(int descriptor);
    void allowAnyTime(int descriptor);
    /// Begins the time of the requests of which something has come.
    void noticeBeginnings();
    /// To be called once a second: those whose time is over, and those that nobody asks anything on any more.
    void shutDownOldOnes();

private:
    using Clock = std::chrono::steady_clock;

    enum class Phase { Asking, Answering, Silent };

    struct Connection
    {
        Clock::time_point deadline;
        bool isAdmitted;
        Phase phase;
    };

    int m_most = 1;
    std::chrono::seconds m_time{1};
    QHash<int, Connection> m_connections;
    int m_admitted = 0; ///< of them
};
