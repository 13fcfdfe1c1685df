#pragma once

#include <QString>

#include <cstdio>
#include <ctime>
#include <stdexcept>
#include <string>

/// Tells what each step takes of the processor: the clock on the wall would count what others take.
class Stopwatch
{
public:
    /// Prints a line, the name and the seconds since the line before, which script/sizes reads.
    void tell(const char *step)
    {
        const double now = seconds();
        std::printf("%s %.6f\n", step, now - m_begin);
        m_begin = seconds();
    }
    /// What was done since the line before is nobody's.
    void restart() { m_begin = seconds(); }

private:
    static double seconds()
    {
        timespec time = {};
        clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &time);
        return static_cast<double>(time.tv_sec) + 1e-9 * static_cast<double>(time.tv_nsec);
    }

    double m_begin = seconds();
};

/// Ends the program with @p problem, unless @p isDone.
inline void require(bool isDone, const QString &problem)
{
    if (!isDone) {
        throw std::runtime_error(problem.toStdString());
    }
}
