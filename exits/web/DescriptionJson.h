#pragma once

#include "region/FollowedLeaf.h"

#include <QByteArray>
#include <QVector>

/// What a description says of its leaves, as a JSON array in their order.
QByteArray leavesAsJson(const QVector<FollowedLeaf> &leaves);
