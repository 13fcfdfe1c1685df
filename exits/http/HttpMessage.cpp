#include "http/HttpMessage.h"

QByteArray HttpRequest::header(const char *name) const
{
    QByteArray joined;
    for (const auto &header : headers) {
        if (qstricmp(header.first.constData(), name) == 0) {
            joined += (joined.isEmpty() ? "" : ",") + header.second;
        }
    }
    return joined;
}

int HttpRequest::countOf(const char *name) const
{
    int count = 0;
    for (const auto &header : headers) {
        count += qstricmp(header.first.constData(), name) == 0 ? 1 : 0;
    }
    return count;
}
