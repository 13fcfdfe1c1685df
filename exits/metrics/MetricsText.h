#pragma once

#include "metrics/MetricsWriter.h"
#include "region/RegionFollower.h"
#include "region/UrlChoice.h"

#include <QByteArray>
#include <QVector>

/// Which form the `Accept` header of a request asks for; Prometheus where it does not matter.
MetricsForm formAccepted(const QByteArray &accept);
/// `Content-Type` of the form.
QByteArray contentTypeOf(MetricsForm form);

/// Which leaves are told of.
struct MetricsChoice
{
    UrlChoice taken; ///< empty: all
    UrlChoice left;  ///< wins

    bool holds(const QString &url) const;
};

/// The indices of the chosen leaves.
QVector<int> chosenLeaves(const RegionFollower &region, const MetricsChoice &choice);

/// All metrics of one set, which is taken here. A value that is not valid, or not a number, is left out; so
/// are values and states together while the region is away. @p mirrors: status files of mirrors, to be told of as
/// well.
QByteArray metricsText(RegionFollower &region, const QVector<int> &leaves, MetricsForm form,
                       const QStringList &mirrors = {});
