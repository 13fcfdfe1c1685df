#pragma once

#include "torture/Stage.h"
#include "torture/TortureOptions.h"

#include <QString>

#include <random>

namespace Torture {

/// A kind of torture that goes on round by round, each of which begins anew with its own processes.
///
/// Whatever happens, no process and nothing in shared memory stays behind it.
class TortureMode
{
public:
    explicit TortureMode(const Options &options);
    virtual ~TortureMode() = default;

    TortureMode(const TortureMode &) = delete;
    TortureMode &operator=(const TortureMode &) = delete;

    /// The exit code: 0 if nothing was found, 1 if something was, 128 + N after signal N.
    int run();

protected:
    virtual void playRound() = 0;
    /// What was done so far, in a line.
    virtual QString figures() const = 0;
    /// More lines at the end.
    virtual void tellMore() const { }
    /// Rounds that a run has at least, however short it is.
    virtual quint64 leastRounds() const { return 1; }

    quint64 random(quint64 bound) { return m_random() % bound; }
    bool isPlanted(Plant plant) const { return m_options.plant == plant; }
    bool hasFailed() const { return !m_failure.isEmpty(); }
    /// The first thing that goes wrong counts; what goes wrong because of a signal does not.
    void fail(const QString &text);

    const Options m_options;
    const QString m_key;
    StageMapping m_stage;
    quint64 m_rounds = 0;

private:
    bool isGoingOn(qint64 deadline) const;
    void showProgress();
    void report() const;

    std::mt19937_64 m_random;
    qint64 m_begin;
    qint64 m_nextProgress = 0;
    QString m_failure;
};

} // namespace Torture
