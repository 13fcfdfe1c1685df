#include "snapshots/SnapshotDifference.h"

#include "Companion/ConfigurationAndProcessDataDefinitions.h"
#include "descriptions/UrlPattern.h"

#include <QHash>

#include <algorithm>
#include <cmath>
#include <utility>
#include <vector>

namespace {

using Kind = SnapshotDifference::Kind;
using ProcessDataDefinitions::PROCESS_VALUE_ERROR_TYPE_VALID;

/// By URL, made once: there may be many leaves.
class Tolerances
{
public:
    explicit Tolerances(const QVector<SnapshotTolerance> &tolerances)
    {
        for (const auto &tolerance : tolerances) {
            m_patterns.emplace_back(UrlPattern(tolerance.url), tolerance.most);
        }
    }

    std::optional<ExactNumber> of(const QString &url) const
    {
        const auto found = std::find_if(
            m_patterns.crbegin(), m_patterns.crend(),
            [&](const auto &pattern) { return pattern.first.leadsTo(url); });
        return found == m_patterns.crend() ? std::nullopt : std::make_optional(found->second);
    }

private:
    std::vector<std::pair<UrlPattern, ExactNumber>> m_patterns;
};

bool areSame(const QVariant &was, const QVariant &is)
{
    const auto former = ExactNumber::fromContent(was);
    const auto latter = ExactNumber::fromContent(is);
    if (!former || !latter) {
        return was == is;
    }
    if (former->isNaN() || latter->isNaN()) {
        return former->isNaN() && latter->isNaN();
    }
    return ExactNumber::compare(*former, *latter) == Order::Equal
           && std::signbit(former->toDouble()) == std::signbit(latter->toDouble());
}

bool areNear(const QVariant &was, const QVariant &is, const ExactNumber &most)
{
    const auto former = ExactNumber::fromContent(was);
    const auto latter = ExactNumber::fromContent(is);
    if (!former || !latter) {
        return false;
    }
    const auto order = ExactNumber::compare(ExactNumber::distance(*former, *latter), most);
    return order && *order != Order::Greater;
}

std::optional<Kind> kindOf(const Snapshot::Value &was, const Snapshot::Value &is,
                           const std::optional<ExactNumber> &tolerance)
{
    if (was.type != is.type) {
        return Kind::Type;
    }
    if (was.value.getErrorType() != is.value.getErrorType()) {
        return Kind::State;
    }
    const QVariant &former = was.value.getValue();
    const QVariant &latter = is.value.getValue();
    const bool isAlike = was.value.getErrorType() != PROCESS_VALUE_ERROR_TYPE_VALID
                         || areSame(former, latter)
                         || (tolerance && areNear(former, latter, *tolerance));
    return isAlike ? std::optional<Kind>() : Kind::Value;
}

/// Whether the former snapshot was asked for what lies at the URL.
bool isAskedFor(const QVector<UrlPattern> &asked, const QString &url)
{
    return asked.isEmpty()
           || std::any_of(asked.cbegin(), asked.cend(),
                          [&](const UrlPattern &pattern) { return pattern.leadsTo(url); });
}

} // namespace

QVector<SnapshotDifference> differencesBetween(const Snapshot &was, const Snapshot &is,
                                               const QVector<SnapshotTolerance> &tolerances)
{
    const Tolerances allowed(tolerances);
    QHash<QString, const Snapshot::Value *> left;
    for (const auto &value : is.values) {
        left.insert(value.url, &value);
    }
    QVector<SnapshotDifference> differences;
    for (const auto &former : was.values) {
        const auto *const latter = left.take(former.url);
        const auto tolerance = isNumberType(former.type) ? allowed.of(former.url) : std::nullopt;
        if (latter == nullptr) {
            differences.append({Kind::Missing, former.url, former, {}, tolerance});
        } else if (const auto kind = kindOf(former, *latter, tolerance)) {
            differences.append({*kind, former.url, former, *latter, tolerance});
        }
    }
    QVector<UrlPattern> asked;
    for (const auto &url : was.urls) {
        asked.append(UrlPattern(url));
    }
    for (const auto &latter : is.values) {
        if (left.contains(latter.url) && isAskedFor(asked, latter.url)) {
            differences.append({Kind::New, latter.url, {}, latter, {}});
        }
    }
    return differences;
}

bool isNumberType(const QString &type)
{
    const int metaType =
        ConfigurationAndProcessDataDefinitions::getBasicDataTypeMapForProcessData().value(
            type, QMetaType::UnknownType);
    return metaType != QMetaType::UnknownType && metaType != QMetaType::Bool
           && metaType != QMetaType::QString;
}
