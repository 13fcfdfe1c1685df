#include "mqtt/ReportRules.h"

#include <algorithm>
#include <cmath>

namespace {

template <class Number>
double wholeDistance(Number left, Number right)
{
    // Modulo 2^64 the difference of the larger and the smaller one is right for signed numbers, too.
    return static_cast<double>(static_cast<quint64>(std::max(left, right))
                               - static_cast<quint64>(std::min(left, right)));
}

/// Doubles of large integers would be alike where the integers are not.
double distance(const QVariant &left, const QVariant &right)
{
    switch (left.userType()) {
    case QMetaType::LongLong: return wholeDistance(left.toLongLong(), right.toLongLong());
    case QMetaType::ULongLong: return wholeDistance(left.toULongLong(), right.toULongLong());
    default: return std::abs(left.toDouble() - right.toDouble());
    }
}

} // namespace

ReportRule ReportRules::ruleOf(const QString &url) const
{
    const auto found = std::find_if(m_rules.cbegin(), m_rules.cend(),
                                    [&](const auto &rule) { return rule.first.leadsTo(url); });
    return found == m_rules.cend() ? ReportRule() : found->second;
}

std::optional<qint64> ReportedLeaf::dueTime(const ProcessValue &value) const
{
    // A state is news at once: what a plant does about it must not wait.
    if (!m_told || m_isAsked || m_told->getErrorType() != value.getErrorType()) {
        return 0;
    }
    if (*m_told == value || isWithinDeadband(value)) {
        return std::nullopt;
    }
    return m_toldAt + m_rule.leastInterval;
}

bool ReportedLeaf::isWithinDeadband(const ProcessValue &value) const
{
    const QVariant &content = value.getValue();
    if (m_rule.deadband <= 0 || content.userType() == QMetaType::QString
        || content.userType() == QMetaType::Bool) {
        return false;
    }
    // From or to no number there is no distance.
    return distance(content, m_told->getValue()) <= m_rule.deadband;
}
