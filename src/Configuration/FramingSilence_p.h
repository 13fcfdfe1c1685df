#pragma once

#include <QtGlobal>

/// While one of these is alive on a thread, the library's framing there says nothing.
///
/// For a text that is only looked at: what is wrong with a tree is told where it is written.
class FramingSilence
{
public:
    FramingSilence();
    ~FramingSilence();

    /// Whether the current thread is to say nothing.
    static bool isKept();

private:
    Q_DISABLE_COPY(FramingSilence)

    bool m_wasKept;
};
