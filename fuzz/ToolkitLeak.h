#pragma once

#include <QByteArray>

/// Keeps the leak sanitizer from looking, as long as it lives, where the toolkit itself loses memory.
///
/// The JSON parser of Qt 5.15 forgets what it read under a key that stands twice in one object. So
/// a text with such a key, or one that is no JSON, is judged without a look at leaks.
class ToolkitLeak
{
public:
    explicit ToolkitLeak(const QByteArray &json);
    ~ToolkitLeak();

private:
    Q_DISABLE_COPY(ToolkitLeak)

    bool m_isPossible;
};
