#pragma once

#include "http/HttpMessage.h"

#include <QString>

/// What cannot be done, with cause and cure, and never with what somebody has to keep to himself.
struct WebError
{
    int status;
    QString what;
    QString where; ///< a path, a header, or the URL of a leaf
    QString cure;
};

HttpResponse errorAnswer(const WebError &error);
