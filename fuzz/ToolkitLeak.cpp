#include "ToolkitLeak.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <sanitizer/lsan_interface.h>

namespace {

/// Members of all objects in @p value.
int countMembers(const QJsonValue &value)
{
    int count = 0;
    if (value.isArray()) {
        const QJsonArray entries = value.toArray();
        for (const QJsonValue &entry : entries) {
            count += countMembers(entry);
        }
    }
    const QJsonObject members = value.toObject();
    for (const QJsonValue &member : members) {
        count += 1 + countMembers(member);
    }
    return count;
}

/// Colons outside of texts: as many as the JSON text writes members.
int countColons(const QByteArray &json)
{
    int count = 0;
    bool isInText = false;
    for (int i = 0; i < json.size(); ++i) {
        const char character = json.at(i);
        if (isInText && character == '\\') {
            ++i;
        } else if (character == '"') {
            isInText = !isInText;
        } else if (character == ':' && !isInText) {
            ++count;
        }
    }
    return count;
}

bool isLeakPossible(const QByteArray &json)
{
    const __lsan::ScopedDisabler noLeaks;
    const QJsonDocument document = QJsonDocument::fromJson(json);
    const QJsonValue value = document.isArray() ? QJsonValue(document.array())
                                                : QJsonValue(document.object());
    return document.isNull() || countMembers(value) != countColons(json);
}

} // namespace

ToolkitLeak::ToolkitLeak(const QByteArray &json) : m_isPossible(isLeakPossible(json))
{
    if (m_isPossible) {
        __lsan_disable();
    }
}

ToolkitLeak::~ToolkitLeak()
{
    if (m_isPossible) {
        __lsan_enable();
    }
}
