#pragma once

#include "Access/ProcessDataSnapshot.h"
#include "descriptions/DescriptionSource.h"
#include "recordings/RecordingFormat.h"

#include <memory>

/// What makes a recorder save what was before and after.
///
/// It comes when it begins to hold: what holds with the first set that is shown has not begun, and comes once it
/// has ended and begins anew.
class RecordTrigger
{
public:
    using Clock = std::chrono::steady_clock;

    /// From the words of the command line: `state != valid: URL`, `state == STATE: URL`, `gap > TIME`, or an
    /// expression. A Failure if it is none of them.
    static std::unique_ptr<RecordTrigger> fromText(const QString &text,
                                                   const DescriptionSource &description);
    virtual ~RecordTrigger();

    RecordTrigger(const RecordTrigger &) = delete;
    RecordTrigger &operator=(const RecordTrigger &) = delete;

    /// As it was given.
    const QString &text() const { return m_text; }
    /// The leaves that it reads, each of which must have a usable slot.
    virtual QVector<Leaf> leaves() const { return {}; }
    /// Whether it is about the time between two sets, so that none may be passed over.
    virtual bool needsEverySet() const { return false; }
    /// Whether it comes with a set. @p isNext: none was dropped before it.
    virtual bool comesWith(const ProcessDataSnapshot &set, Clock::time_point now, bool isNext) = 0;
    /// When it comes if there is no set until then.
    virtual std::optional<Clock::time_point> deadline() const { return {}; }
    /// The deadline has passed, and there was no set. True if it comes.
    virtual bool comesWithoutSet(Clock::time_point /*now*/) { return false; }

protected:
    explicit RecordTrigger(const QString &text) : m_text(text) { }

private:
    QString m_text;
};
