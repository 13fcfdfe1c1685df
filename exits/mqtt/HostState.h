#pragma once

#include <QByteArray>

#include <optional>

/// What a primary host application says of itself on its topic of states: whether it is there.
///
/// Its messages carry a time, and one that is older than what was heard before is a message that has been
/// overtaken: it says nothing.
class HostState
{
public:
    enum class Change { None, Online, Offline };

    /// What @p payload, a JSON object of `online` and `timestamp`, changes.
    Change take(const QByteArray &payload);
    /// For a new connection: whether the host is there is asked anew, and its times go on.
    void forget() { m_isOnline.reset(); }
    bool isOnline() const { return m_isOnline.value_or(false); }

private:
    std::optional<bool> m_isOnline;
    double m_newest = -1;
};
