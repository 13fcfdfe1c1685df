#include "mirror/RequestedWrites.h"

#include "region/SetWriting.h"
#include "region/WriteCheck.h"

#include <QHash>
#include <QSet>

namespace {

using ProcessDataDefinitions::ErrorTypes;
using ProcessDataDefinitions::PROCESS_VALUE_ERROR_TYPE_TIMEOUT;
using ProcessDataDefinitions::PROCESS_VALUE_ERROR_TYPE_VALID;

/// Of a text of somebody else in a message.
constexpr int mostCharacters = 200;

/// A value for a leaf, or why there is none.
struct Reviewed
{
    ProcessValue value;
    WriteResult result;
    QString problem;
};

Reviewed refused(WriteResult result, const QString &problem)
{
    return {{PROCESS_VALUE_ERROR_TYPE_VALID}, result, problem};
}

Reviewed checked(const ProcessValue &value, const QString &problem)
{
    return {value, problem.isEmpty() ? WriteResult::Written : WriteResult::Refused, problem};
}

/// What is written into the log and sent back has an end, however long the text that it names is.
QString shortened(QString problem, const QString &text)
{
    return text.size() > mostCharacters
               ? problem.replace(text, text.left(mostCharacters) + QChar(0x2026))
               : problem;
}

Reviewed review(const FollowedLeaf &leaf, const RequestedValue &asked)
{
    // What is read-only says so whatever is to be written.
    if (!leaf.element || leaf.isReadOnly) {
        return refused(WriteResult::Refused, problemOfWrite(leaf, {}));
    }
    if (asked.state > PROCESS_VALUE_ERROR_TYPE_TIMEOUT) {
        return refused(WriteResult::Refused,
                       QStringLiteral("%1 is no error state").arg(asked.state));
    }
    if (asked.state != PROCESS_VALUE_ERROR_TYPE_VALID) {
        const auto state = static_cast<ErrorTypes>(asked.state);
        return checked({state}, problemOfStateWrite(leaf, state));
    }
    const TypedValue typed = TypedValue::fromText(WritableSlot::of(*leaf.element), asked.text,
                                                  howToWriteAState);
    return checked({typed.value, PROCESS_VALUE_ERROR_TYPE_VALID},
                   typed.problem.isEmpty() ? problemOfWrite(leaf, typed.value)
                                           : shortened(typed.problem, asked.text));
}

/// All that is asked for, looked over before anything is written.
class RequestReview
{
public:
    RequestReview(const RegionFollower &region, const UrlChoice &allowed,
                  const WriteRequest &request)
    {
        QHash<QString, int> indices;
        for (int i = 0; i < region.leaves().size(); ++i) {
            indices.insert(region.leaves()[i].url, i);
        }
        for (const auto &asked : request.values) {
            take(region, allowed, asked, indices.value(asked.url, -1));
        }
        if (m_refused > 1) {
            m_answer.text += QStringLiteral("; %1 of %2 values are refused, and nothing is written")
                                 .arg(m_refused)
                                 .arg(request.values.size());
        }
        m_answer.number = request.number;
    }

    const QVector<LeafWrite> &writes() const { return m_writes; }
    const WriteAnswer &answer() const { return m_answer; }

private:
    void take(const RegionFollower &region, const UrlChoice &allowed, const RequestedValue &asked,
              int index)
    {
        const Reviewed result = reviewedAt(region, allowed, asked, index);
        m_writes.append({index, result.value});
        if (!result.problem.isEmpty() && ++m_refused == 1) {
            m_answer.result = result.result;
            m_answer.text =
                QStringLiteral("'%1': %2").arg(asked.url.left(mostCharacters), result.problem);
        }
    }
    Reviewed reviewedAt(const RegionFollower &region, const UrlChoice &allowed,
                        const RequestedValue &asked, int index)
    {
        // What may not be written is not told of either.
        if (!allowed.leadsTo(asked.url)) {
            return refused(
                WriteResult::NoAccess,
                QStringLiteral("the source does not allow it; '--commands %1' there does")
                    .arg(asked.url.left(mostCharacters)));
        }
        if (index < 0) {
            return refused(WriteResult::NotFound, QStringLiteral("there is no such leaf"));
        }
        if (m_given.contains(index)) {
            return refused(WriteResult::WrongUse, QStringLiteral("it is given twice"));
        }
        m_given.insert(index);
        return review(region.leaves()[index], asked);
    }

    QVector<LeafWrite> m_writes;
    QSet<int> m_given;
    int m_refused = 0;
    WriteAnswer m_answer;
};

} // namespace

WriteAnswer carryOut(RegionFollower &region, const UrlChoice &allowed, const WriteRequest &request)
{
    region.lookNow();
    if (!region.isUp()) {
        return {request.number, WriteResult::NotFound, region.absence()};
    }
    const RequestReview review(region, allowed, request);
    if (review.answer().result != WriteResult::Written) {
        return review.answer();
    }
    const SetWriting writing = SetWriting::publish(region, review.writes());
    return {request.number,
            writing.problem.isEmpty() ? WriteResult::Written : WriteResult::NoAccess,
            writing.problem};
}
