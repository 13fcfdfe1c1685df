#include "text/LogCollector.h"

#include "text/Output.h"

#include <QMutex>
#include <QMutexLocker>
#include <QStringList>

namespace {

constexpr int longestReason = 400;
constexpr int mostHeld = 1000;

struct Log
{
    QMutex mutex;
    QStringList warnings;
    bool isShown = false;
    bool isHeld = false;
    QStringList held;
};

Log &theLog()
{
    static Log log;
    return log;
}

void collect(QtMsgType type, const QMessageLogContext & /*context*/, const QString &text)
{
    Log &log = theLog();
    const QMutexLocker locker(&log.mutex);
    if (log.isShown && log.isHeld) {
        if (log.held.size() < mostHeld) {
            log.held.append(text);
        }
    } else if (log.isShown) {
        writeErrorLine(text);
    }
    const QString warning = text.simplified();
    const bool isReason = type != QtDebugMsg && type != QtInfoMsg;
    if (isReason && !log.warnings.contains(warning)) {
        log.warnings.append(warning);
    }
}

} // namespace

LogCollector::LogCollector()
{
    qInstallMessageHandler(collect);
}

LogCollector::~LogCollector()
{
    qInstallMessageHandler(nullptr);
}

void LogCollector::showMessages()
{
    const QMutexLocker locker(&theLog().mutex);
    theLog().isShown = true;
}

void LogCollector::holdMessages()
{
    const QMutexLocker locker(&theLog().mutex);
    theLog().isHeld = true;
}

void LogCollector::releaseMessages()
{
    const QMutexLocker locker(&theLog().mutex);
    theLog().isHeld = false;
    for (const auto &message : std::as_const(theLog().held)) {
        writeErrorLine(message);
    }
    theLog().held.clear();
}

QString LogCollector::takeReasons()
{
    const QMutexLocker locker(&theLog().mutex);
    QString reasons = theLog().warnings.join(QStringLiteral("; "));
    theLog().warnings.clear();
    if (reasons.size() > longestReason) {
        reasons = reasons.left(longestReason) + QStringLiteral(" ...");
    }
    return reasons;
}
