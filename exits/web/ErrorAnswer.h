#pragma once

#include "http/HttpMessage.h"
#include "region/RegionFollower.h"

#include <QPair>
#include <QString>
#include <QVector>

/// What cannot be done, with cause and cure, and never with what somebody has to keep to himself.
struct WebError
{
    int status;
    QString what;
    QString where; ///< a path, a header, or the URL of a leaf
    QString cure;
    /// Where several things are wrong: each with its place and what it is.
    QVector<QPair<QString, QString>> refused = {};
};

HttpResponse errorAnswer(const WebError &error);

/// Where there are no values, for the reason that @p region has.
HttpResponse absentAnswer(const RegionFollower &region);
