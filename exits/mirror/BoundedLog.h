#pragma once

#include <QElapsedTimer>
#include <QString>

/// Lines of the log that others cause: so many a second, and those beyond are counted.
class BoundedLog
{
public:
    void notice(const QString &text);
    void warning(const QString &text);

private:
    static constexpr int sm_second = 1000;
    static constexpr int sm_mostInSecond = 10;

    bool takeOne();

    QElapsedTimer m_second;
    int m_written = 0;
    int m_leftOut = 0;
};
