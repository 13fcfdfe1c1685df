#pragma once

#include <QByteArray>
#include <QList>
#include <QString>
#include <QtTest>

/// One line of the log as the library wrote it.
struct LogLine
{
    QtMsgType type;
    QByteArray category;
    QString text;

    bool operator==(const LogLine &other) const
    {
        return type == other.type && category == other.category && text == other.text;
    }
};

/// A warning of the library, as expected by a test.
inline LogLine warning(const QString &text)
{
    return {QtWarningMsg, "default", text};
}
inline LogLine info(const QString &text)
{
    return {QtInfoMsg, "default", text};
}
inline LogLine debugLine(const QString &text)
{
    return {QtDebugMsg, "default", text};
}

/// Takes in every log line from its construction to its destruction, from any thread, instead of
/// letting it out. One at a time.
class LogCapture
{
public:
    LogCapture();
    ~LogCapture();

    LogCapture(const LogCapture &) = delete;
    LogCapture &operator=(const LogCapture &) = delete;

    /// What came so far; begins anew.
    QList<LogLine> take();

private:
    QtMessageHandler m_former;
};

/// Readable form for the message of a failed comparison.
QString toText(const QList<LogLine> &lines);

/// Compares all that @p log took with the expected lines: type, category, text and order.
template <class... Lines>
bool compareLog(const char *file, int line, LogCapture &log, const Lines &...lines)
{
    const QString actual = toText(log.take());
    const QString expected = toText(QList<LogLine>{lines...});
    return QTest::qCompare(actual, expected, "log", "expected", file, line);
}

/// COMPARE_LOG(log, warning("..."), ...) ends the test function if the log took anything else;
/// without lines, if it took anything at all.
#define COMPARE_LOG(...)                                                                           \
 do {                                                                                              \
  if (!compareLog(__FILE__, __LINE__, __VA_ARGS__)) {                                              \
   return;                                                                                         \
  }                                                                                                \
 } while (false)
