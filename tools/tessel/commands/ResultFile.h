#pragma once

#include <QString>

/// Where a subcommand puts what it makes: into a file, or on standard output for `-`.
///
/// That it cannot be written is told before anything is made, so that a dry run tells it as well.
class ResultFile
{
public:
    /// Of @p option, which names it, of @p command. A Failure if it cannot be written.
    ResultFile(const QString &command, const QString &option, const QString &path);

    const QString &path() const { return m_path; }
    /// Whole or not at all: a former file stays until the new one is complete. A Failure if that fails.
    void write(const QString &text) const;

private:
    QString m_path;
};
