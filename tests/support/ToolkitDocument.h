#pragma once

#include <QByteArray>
#include <QJsonDocument>

#if defined(__has_feature)
# if __has_feature(address_sanitizer)
#  define TESSEL_LEAKS_ARE_LOOKED_FOR
# endif
#endif

#ifdef TESSEL_LEAKS_ARE_LOOKED_FOR
# include <sanitizer/lsan_interface.h>
#endif

/// While one lives, nothing counts as a leak that is taken by the thread. The JSON parser of the toolkit
/// forgets what it read under a key that stands twice in one object.
class ToolkitLeaks
{
public:
    ToolkitLeaks() = default;
    ~ToolkitLeaks() = default;

private:
    Q_DISABLE_COPY(ToolkitLeaks)

#ifdef TESSEL_LEAKS_ARE_LOOKED_FOR
    __lsan::ScopedDisabler m_disabled;
#endif
};

/// What the toolkit makes of a JSON text.
inline QJsonDocument toolkitDocument(const QByteArray &json, QJsonParseError *error = nullptr)
{
    [[maybe_unused]] const ToolkitLeaks leaks;
    return QJsonDocument::fromJson(json, error);
}
