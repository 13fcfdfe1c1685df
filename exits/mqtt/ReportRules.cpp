#include "mqtt/ReportRules.h"

#include <algorithm>
#include <cmath>

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
    return std::abs(content.toDouble() - m_told->getValue().toDouble()) <= m_rule.deadband;
}
