#pragma once

#include "ProcessData/ProcessValue.h"
#include "region/UrlChoice.h"

#include <QVector>

#include <optional>

/// What makes a newer value worth telling.
struct ReportRule
{
    /// A number has to have moved by more than this since it was told last. 0: any change.
    double deadband = 0;
    /// Milliseconds from one telling to the next at least.
    qint64 leastInterval = 0;
};

/// The rules of a configuration, chosen by URL patterns. The first that leads to a URL holds.
class ReportRules
{
public:
    void add(const QString &pattern, const ReportRule &rule)
    {
        m_rules.append({UrlChoice({pattern}), rule});
    }
    ReportRule ruleOf(const QString &url) const;

private:
    QVector<QPair<UrlChoice, ReportRule>> m_rules;
};

/// The last value of one leaf that was told, and whether a newer one is to be. Times in milliseconds of
/// a clock that never goes back.
class ReportedLeaf
{
public:
    explicit ReportedLeaf(const ReportRule &rule = {}) : m_rule(rule) { }

    /// Nothing; or the time from which on @p value is to be told, which may be past.
    std::optional<qint64> dueTime(const ProcessValue &value) const;
    void markTold(const ProcessValue &value, qint64 now)
    {
        m_told = value;
        m_toldAt = now;
        m_isAsked = false;
    }
    /// The next value is told whatever it is.
    void ask() { m_isAsked = true; }
    /// That it told last, if anything.
    const std::optional<ProcessValue> &told() const { return m_told; }

private:
    bool isWithinDeadband(const ProcessValue &value) const;

    ReportRule m_rule;
    std::optional<ProcessValue> m_told;
    qint64 m_toldAt = 0;
    bool m_isAsked = false;
};
