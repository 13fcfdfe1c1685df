#include "RateRun.h"

#include "RecordedCount.h"
#include "support/LookingReader.h"
#include "text/Failure.h"

#include <QElapsedTimer>
#include <QFileInfo>
#include <QJsonDocument>
#include <QJsonObject>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <ctime>

#include <sched.h>
#include <unistd.h>

namespace {

using Clock = std::chrono::steady_clock;

constexpr int longestStart = 60000; // ms
constexpr auto tellInterval = std::chrono::milliseconds(200);

volatile std::sig_atomic_t endSignal = 0;

double secondsOf(clockid_t clock)
{
    timespec time = {};
    ::clock_gettime(clock, &time);
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
}

double processorOf(qint64 pid)
{
    clockid_t clock = 0;
    return ::clock_getcpuclockid(static_cast<pid_t>(pid), &clock) == 0 ? secondsOf(clock) : 0;
}

/// A signal ends the wait.
void sleepUntil(Clock::time_point time)
{
    const auto count =
        std::chrono::duration_cast<std::chrono::nanoseconds>(time.time_since_epoch()).count();
    timespec until = {};
    until.tv_sec = static_cast<time_t>(count / 1000000000);
    until.tv_nsec = static_cast<long>(count % 1000000000);
    ::clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &until, nullptr);
}

void showProgress(const char *what, double seconds, quint64 sets)
{
    if (::isatty(STDERR_FILENO) != 0) {
        std::fprintf(stderr, "\r\033[K[%.0f s] %s: %llu sets", seconds, what,
                     static_cast<unsigned long long>(sets));
    }
}

void clearProgress()
{
    if (::isatty(STDERR_FILENO) != 0) {
        std::fputs("\r\033[K", stderr);
    }
}

QString figures(double processor, quint64 sets, double seconds)
{
    return QStringLiteral("processor %1 %, %2 us a set")
        .arg(processor / seconds * 100, 0, 'f', 1)
        .arg(sets == 0 ? 0 : processor * 1e6 / static_cast<double>(sets), 0, 'f', 0);
}

void tell(const QString &line)
{
    std::printf("%s\n", qPrintable(line));
    std::fflush(stdout);
}

void tellPublished(const char *what, const PublishedTime &time)
{
    tell(QStringLiteral("publisher %1: %2 sets in %3 s, %4 a second, %5 left out as late; %6")
             .arg(QLatin1String(what))
             .arg(time.sets)
             .arg(time.seconds, 0, 'f', 1)
             .arg(static_cast<double>(time.sets) / time.seconds, 0, 'f', 1)
             .arg(time.late)
             .arg(figures(time.processor, time.sets, time.seconds)));
}

} // namespace

RateRun::RateRun(const RateOptions &options)
    : m_options(options)
    , m_plant(m_folder.path(), options.leaves, options.changed())
    , m_recording(m_folder.filePath(QStringLiteral("plant.rec")))
{
}

void RateRun::requestEnd(int signal)
{
    endSignal = signal;
}

int RateRun::run()
{
    if (!m_plant.isLive()) {
        return failed(QStringLiteral("no region could be made; the lines above say why"));
    }
    tellPublished("alone", publish("alone"));
    if (endSignal == 0 && m_problem.isEmpty() && startRecorder()) {
        m_isRecorded = true;
        m_first = m_plant.number();
        const double before = processorOf(m_recorder.processId());
        const PublishedTime time = publish("with recorder");
        const double processor = processorOf(m_recorder.processId()) - before;
        tellPublished("with recorder", time);
        tell(QStringLiteral("recorder: ") + figures(processor, time.sets, time.seconds));
        m_published = time.sets;
    }
    const bool isEnded = endRecorder();
    if (endSignal != 0) {
        return 128 + endSignal;
    }
    return isEnded && m_problem.isEmpty() && judge() ? 0 : failed(m_problem);
}

int RateRun::failed(const QString &reason)
{
    std::fprintf(stderr, "script/bench-record: %s\n", qPrintable(reason));
    return 1;
}

/// It has the set that is there, and sleeps until the next one.
bool RateRun::startRecorder()
{
    m_recorder.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    m_recorder.start(QStringLiteral(TESSEL_TOOL),
                     {QStringLiteral("record"), QStringLiteral("--json"), QStringLiteral("-o"),
                      m_recording, m_plant.file()});
    LookingReader reader(CountedPlant::key());
    QElapsedTimer timer;
    timer.start();
    while (endSignal == 0 && !reader.hasSeen()) {
        if (m_recorder.waitForFinished(1) || timer.elapsed() > longestStart) {
            m_problem = QStringLiteral("the recorder has not begun; the lines above say why");
            return false;
        }
    }
    return endSignal == 0;
}

bool RateRun::endRecorder()
{
    if (m_recorder.state() == QProcess::NotRunning) {
        return m_problem.isEmpty();
    }
    m_recorder.terminate();
    if (!m_recorder.waitForFinished(longestStart)) {
        m_recorder.kill();
        m_recorder.waitForFinished(60000);
    }
    if (m_recorder.exitStatus() != QProcess::NormalExit || m_recorder.exitCode() != 0) {
        m_problem = QStringLiteral("the recorder has ended with %1; the lines above say why")
                        .arg(m_recorder.exitCode());
    }
    return m_problem.isEmpty();
}

bool RateRun::publishNext(quint64 number)
{
    constexpr quint64 plantedAt = 3;
    if (m_isRecorded && number == plantedAt && m_options.plant == RateOptions::Plant::TornSet) {
        return m_plant.publishTorn();
    }
    if (m_isRecorded && number == plantedAt && m_options.plant == RateOptions::Plant::UncountedSet
        && !m_plant.publishUncounted()) {
        return false;
    }
    return m_plant.publish();
}

/// At the times of the rate. One whose time has passed is left out: a device does not make up for what it missed.
PublishedTime RateRun::publish(const char *what)
{
    const std::chrono::duration<double> period(1 / m_options.rate);
    const auto planned = static_cast<quint64>(m_options.seconds * m_options.rate);
    const double processor = secondsOf(CLOCK_PROCESS_CPUTIME_ID);
    const Clock::time_point begin = Clock::now();
    Clock::time_point nextTelling = begin;
    const auto timeOf = [&](quint64 tick) {
        return begin
               + std::chrono::duration_cast<Clock::duration>(static_cast<double>(tick) * period);
    };
    PublishedTime time;
    for (quint64 tick = 0; tick < planned && endSignal == 0; ++tick) {
        if (Clock::now() > timeOf(tick + 1)) {
            ++time.late;
            continue;
        }
        sleepUntil(timeOf(tick));
        if (endSignal == 0 && !publishNext(time.sets)) {
            m_problem = QStringLiteral("a set could not be published; the lines above say why");
            break;
        }
        ++time.sets;
        if (Clock::now() > nextTelling) {
            showProgress(what, std::chrono::duration<double>(Clock::now() - begin).count(),
                         time.sets);
            nextTelling = Clock::now() + tellInterval;
        }
    }
    clearProgress();
    time.seconds = std::chrono::duration<double>(Clock::now() - begin).count();
    time.processor = secondsOf(CLOCK_PROCESS_CPUTIME_ID) - processor;
    return time;
}

/// Whether all that was published is there or counted as dropped, and each set is what it was.
bool RateRun::judge()
{
    const QJsonObject report = QJsonDocument::fromJson(m_recorder.readAllStandardOutput()).object();
    RecordedCount count;
    try {
        count = RecordedCount::of(m_recording, m_options, m_first);
    } catch (const Failure &failure) {
        m_problem = failure.reason;
        return false;
    }
    // The set that the recorder found there was published before.
    const quint64 published = m_published + 1;
    const double share = static_cast<double>(count.dropped) / static_cast<double>(published) * 100;
    const qint64 bytes = QFileInfo(m_recording).size();
    tell(QStringLiteral(
             "recording: %1 of %2 sets, %3 dropped (%4 %), %5 not whole; %6 bytes, %7 a set")
             .arg(count.sets)
             .arg(published)
             .arg(count.dropped)
             .arg(share, 0, 'f', 2)
             .arg(count.notWhole)
             .arg(bytes)
             .arg(bytes / static_cast<qint64>(qMax<quint64>(count.sets, 1))));
    if (!count.problem.isEmpty()) {
        m_problem = QStringLiteral("the recording is not as it should be: ") + count.problem;
    } else if (count.sets + count.dropped != published) {
        m_problem = QStringLiteral("%1 sets were published, but %2 recorded or dropped")
                        .arg(published)
                        .arg(count.sets + count.dropped);
    } else if (count.notWhole != 0) {
        m_problem = QStringLiteral("%1 sets are not as they were published").arg(count.notWhole);
    } else if (report.value(QLatin1String("sets")).toDouble() != static_cast<double>(count.sets)
               || report.value(QLatin1String("dropped")).toDouble()
                      != static_cast<double>(count.dropped)) {
        m_problem = QStringLiteral("the recorder's report counts otherwise");
    }
    return m_problem.isEmpty();
}
