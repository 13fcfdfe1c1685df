#include "support/LogCapture.h"

#include <QMutex>
#include <QMutexLocker>
#include <QStringList>

namespace {

QMutex &mutex()
{
    static QMutex mutex;
    return mutex;
}

QList<LogLine> &capturedLines()
{
    static QList<LogLine> lines;
    return lines;
}

void captureLine(QtMsgType type, const QMessageLogContext &context, const QString &text)
{
    const QMutexLocker locker(&mutex());
    capturedLines().append({type, context.category, text});
}

const char *typeName(QtMsgType type)
{
    switch (type) {
    case QtDebugMsg: return "debug";
    case QtInfoMsg: return "info";
    case QtWarningMsg: return "warning";
    case QtCriticalMsg: return "critical";
    case QtFatalMsg: return "fatal";
    }
    return "unknown";
}

} // namespace

LogCapture::LogCapture() : m_former(qInstallMessageHandler(captureLine))
{
    take();
}

LogCapture::~LogCapture()
{
    qInstallMessageHandler(m_former);
}

QList<LogLine> LogCapture::take()
{
    const QMutexLocker locker(&mutex());
    QList<LogLine> lines;
    lines.swap(capturedLines());
    return lines;
}

QString toText(const QList<LogLine> &lines)
{
    QStringList texts;
    for (const LogLine &line : lines) {
        texts.append(QStringLiteral("%1 [%2] %3")
                         .arg(QLatin1String(typeName(line.type)),
                              QString::fromLatin1(line.category), line.text));
    }
    return texts.isEmpty() ? QStringLiteral("(no line)") : texts.join(QLatin1String(" | "));
}
