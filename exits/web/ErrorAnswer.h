#pragma once

#include "http/HttpMessage.h"

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

/// Where there are no values of the region @p key, and why.
HttpResponse absentAnswer(const QString &key, const QString &absence);
