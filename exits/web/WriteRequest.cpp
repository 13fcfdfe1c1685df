#include "web/WriteRequest.h"

#include "region/SetWriting.h"
#include "region/WriteCheck.h"
#include "service/ServiceLog.h"
#include "states/StateTable.h"
#include "web/ErrorAnswer.h"
#include "web/JsonText.h"
#include "web/WriteBody.h"

#include <QHash>

#include <algorithm>

namespace {

using ProcessDataDefinitions::ErrorTypes;
using ProcessDataDefinitions::PROCESS_VALUE_ERROR_TYPE_VALID;

/// Of those that are refused beside the first.
constexpr int mostToldOf = 20;

/// Why a value is not written.
struct RefusedWrite
{
    int status;
    QString what;
    QString url;
};

QString valueForm()
{
    return QStringLiteral("send an object of URLs and values, such as {\"pump/speed\": 12.5, "
                          "\"pump/level\": {\"state\": \"timeout\"}}");
}

QString cureOf(int status)
{
    switch (status) {
    case 400: return QStringLiteral("/api/description has the URLs of the leaves");
    case 403: return QStringLiteral("have the process that created the region write it");
    default: return QStringLiteral("choose a value that the description allows");
    }
}

std::optional<ErrorTypes> stateNamed(const QString &text)
{
    for (const auto &row : StateTable::rows()) {
        if (text == QLatin1String(row.name)
            || text == QString::number(static_cast<int>(row.state))) {
            return row.state;
        }
    }
    return std::nullopt;
}

/// The value of @p asked, or in @p problem why there is none.
ProcessValue valueOf(const FollowedLeaf &leaf, const AskedWrite &asked, QString &problem)
{
    if (asked.kind == AskedWrite::Kind::State) {
        const auto state = stateNamed(asked.text);
        problem = state ? problemOfStateWrite(leaf, *state)
                        : QStringLiteral("'%1' is no error state; tessel-states(7) lists them")
                              .arg(asked.text.left(100));
        return {state.value_or(PROCESS_VALUE_ERROR_TYPE_VALID)};
    }
    const bool isText = asked.kind == AskedWrite::Kind::Text;
    if (leaf.kind == FollowedLeaf::Kind::Text && !isText) {
        problem = QStringLiteral("a string takes a text in quotation marks");
        return {PROCESS_VALUE_ERROR_TYPE_VALID};
    }
    const WritableSlot slot = WritableSlot::of(*leaf.element);
    const TypedValue typed = asked.kind == AskedWrite::Kind::Number
                                 ? TypedValue::fromJsonNumber(slot, asked.text, howToWriteAState)
                                 : TypedValue::fromText(slot, asked.text, howToWriteAState);
    problem = typed.problem.isEmpty() ? problemOfWrite(leaf, typed.value) : typed.problem;
    return {typed.value, PROCESS_VALUE_ERROR_TYPE_VALID};
}

/// All that is asked for, looked over before anything is written.
class Review
{
public:
    Review(const RegionFollower &region, const QVector<AskedWrite> &asked)
    {
        QHash<QString, int> indices;
        for (int i = 0; i < region.leaves().size(); ++i) {
            indices.insert(region.leaves()[i].url, i);
        }
        for (const auto &write : asked) {
            take(region, write, indices.value(write.url, -1));
        }
    }

    const QVector<LeafWrite> &writes() const { return m_writes; }
    const QVector<RefusedWrite> &refused() const { return m_refused; }

private:
    void take(const RegionFollower &region, const AskedWrite &asked, int index)
    {
        if (index < 0) {
            m_refused.append({400, QStringLiteral("there is no such leaf"), asked.url});
            return;
        }
        const FollowedLeaf &leaf = region.leaves()[index];
        QString problem;
        const ProcessValue value = leaf.element && !leaf.isReadOnly
                                       ? valueOf(leaf, asked, problem)
                                       : ProcessValue(PROCESS_VALUE_ERROR_TYPE_VALID);
        if (!leaf.element || leaf.isReadOnly) {
            problem = problemOfWrite(leaf, {});
        }
        if (problem.isEmpty()) {
            m_writes.append({index, value});
        } else {
            m_refused.append({leaf.isReadOnly ? 403 : 409, problem, asked.url});
        }
    }

    QVector<LeafWrite> m_writes;
    QVector<RefusedWrite> m_refused;
};

HttpResponse refusedAnswer(const QVector<RefusedWrite> &refused, int asked)
{
    const RefusedWrite &first = refused.constFirst();
    WebError error{first.status, first.what,
                   first.url.isEmpty() ? QStringLiteral("\"\"") : first.url, cureOf(first.status)};
    if (refused.size() > 1) {
        error.what += QStringLiteral("; %1 of %2 values are refused, and nothing is written")
                          .arg(refused.size())
                          .arg(asked);
        for (int i = 0; i < std::min(refused.size(), mostToldOf); ++i) {
            error.refused.append({refused[i].url, refused[i].what});
        }
    }
    return errorAnswer(error);
}

QByteArray stateJson(const ProcessValue &value)
{
    return QByteArray::number(static_cast<int>(value.getErrorType()));
}

QByteArray stateNameJson(const ProcessValue &value)
{
    return JsonText::text(StateTable::nameOf(value.getErrorType()));
}

QByteArray writtenJson(const FollowedLeaf &leaf, const ProcessValue &former,
                       const ProcessValue &value)
{
    return JsonText::object({{"url", JsonText::text(leaf.url)},
                             {"formerValue", JsonText::value(former)},
                             {"formerState", stateJson(former)},
                             {"formerStateName", stateNameJson(former)},
                             {"value", JsonText::value(value)},
                             {"state", stateJson(value)},
                             {"stateName", stateNameJson(value)},
                             {"unit", JsonText::text(leaf.unit)},
                             {"type", JsonText::text(leaf.type)}});
}

/// The value as JSON has it, or the name of its state.
QString inLog(const ProcessValue &value)
{
    return value.getErrorType() == PROCESS_VALUE_ERROR_TYPE_VALID
               ? QString::fromUtf8(JsonText::value(value))
               : StateTable::nameOf(value.getErrorType());
}

void noteWrite(const QByteArray &peer, const FollowedLeaf &leaf, const ProcessValue &former,
               const ProcessValue &value)
{
    const QString who = peer.isEmpty() ? QStringLiteral("somebody") : QString::fromLatin1(peer);
    ServiceLog::notice(QStringLiteral("%1 has written '%2': %3, was %4")
                           .arg(who, leaf.url, inLog(value), inLog(former)));
}

} // namespace

HttpResponse answerWrite(RegionFollower &region, const HttpRequest &request)
{
    const WriteBody asked = WriteBody::read(request.body);
    if (!asked.problem.isEmpty()) {
        return errorAnswer({400, asked.problem, asked.where, valueForm()});
    }
    region.lookNow();
    if (!region.isUp()) {
        return absentAnswer(region.key(), region.absence());
    }
    const Review review(region, asked.writes);
    if (!review.refused().isEmpty()) {
        return refusedAnswer(review.refused(), asked.writes.size());
    }
    const SetWriting writing = SetWriting::publish(region, review.writes());
    if (!writing.problem.isEmpty()) {
        const QString where = writing.problemLeaf < 0 ? region.key()
                                                      : region.leaves()[writing.problemLeaf].url;
        return errorAnswer({503, writing.problem, where,
                            QStringLiteral("try again; 'tessel doctor' looks at the region")});
    }
    QVector<QByteArray> objects;
    for (int i = 0; i < review.writes().size(); ++i) {
        const LeafWrite &write = review.writes()[i];
        const FollowedLeaf &leaf = region.leaves()[write.leaf];
        objects.append(writtenJson(leaf, writing.former[i], write.value));
        noteWrite(request.peer, leaf, writing.former[i], write.value);
    }
    HttpResponse response;
    response.contentType = "application/json";
    response.body = JsonText::object({{"written", JsonText::array(objects)}}) + '\n';
    return response;
}
