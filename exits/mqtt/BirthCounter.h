#pragma once

#include <QLockFile>
#include <QString>

#include <memory>

/// `bdSeq`: the number by which the death of a session finds its birth. It grows with each CONNECT, 255 is
/// followed by 0, and a file keeps it over restarts.
///
/// One process alone may have it: two that call themselves the same node would end each other's sessions
/// for ever.
class BirthCounter
{
public:
    /// Of the node @p node of @p group, kept in @p folder, which is made. Throws a Refusal.
    BirthCounter(const QString &folder, const QString &group, const QString &node);

    /// The number for a CONNECT that is made next; the file has it by then. A file that cannot be written
    /// is told in the log, and the session is begun all the same.
    int next();
    /// No CONNECT was sent with the last number: it is next() again.
    void takeBack();

    static constexpr int sm_most = 255;

private:
    bool write(int number) const;

    QString m_file;
    std::unique_ptr<QLockFile> m_lock;
    int m_last = sm_most;
    bool m_isFailureTold = false;
};
