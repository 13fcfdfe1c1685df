#include "mirror/SampleFields.h"

#include <chrono>
#include <cstring>

void setSampleText(char *target, const QString &text)
{
    const QByteArray bytes = text.toUtf8().left(sampleTextRoom - 1);
    std::memcpy(target, bytes.constData(), static_cast<std::size_t>(bytes.size()));
    target[bytes.size()] = '\0';
}

QString sampleText(const char *text)
{
    return QString::fromUtf8(text, int(::strnlen(text, sampleTextRoom)));
}

bool isSampleText(const char *text, const QByteArray &utf8)
{
    const std::size_t size = ::strnlen(text, sampleTextRoom);
    return size == static_cast<std::size_t>(utf8.size())
           && std::memcmp(text, utf8.constData(), size) == 0;
}

qint64 sampleTime()
{
    using namespace std::chrono;
    return duration_cast<microseconds>(system_clock::now().time_since_epoch()).count();
}
