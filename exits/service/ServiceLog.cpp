#include "service/ServiceLog.h"

#include <QByteArray>
#include <QtGlobal>

#include <atomic>
#include <cerrno>

#include <sys/stat.h>
#include <unistd.h>

namespace {

constexpr int longestReason = 400;

thread_local LibraryReasons *innermost = nullptr;

QByteArray &programName()
{
    // cppcheck-suppress unassignedVariable ; whoever has the reference assigns it
    static QByteArray name;
    return name;
}

std::atomic<bool> areNoticesLeftOut{false};

/// The service manager names the stream that ends in the journal. What a program inherits may name another one
/// than its standard error.
bool isJournalListening()
{
    static const bool isListening = [] {
        struct stat error
        {
        };
        return fstat(STDERR_FILENO, &error) == 0
               && qgetenv("JOURNAL_STREAM")
                      == QByteArray::number(quint64{error.st_dev}) + ':'
                             + QByteArray::number(quint64{error.st_ino});
    }();
    return isListening;
}

bool movesCursor(QChar character)
{
    const QChar::Category category = character.category();
    return category == QChar::Other_Control || category == QChar::Other_Format
           || category == QChar::Separator_Line || category == QChar::Separator_Paragraph;
}

QString inOneLine(const QString &text)
{
    QString line;
    line.reserve(text.size());
    for (const QChar character : text) {
        if (movesCursor(character)) {
            line += QStringLiteral("\\u%1").arg(character.unicode(), 4, 16, QLatin1Char('0'));
        } else {
            line += character;
        }
    }
    return line;
}

const char *nameOf(ServiceLog::Level level)
{
    switch (level) {
    case ServiceLog::Level::Error: return "error: ";
    case ServiceLog::Level::Warning: return "warning: ";
    case ServiceLog::Level::Notice:
    case ServiceLog::Level::Info: break;
    }
    return "";
}

} // namespace

void ServiceLog::start(const QString &program)
{
    programName() = program.toUtf8();
    qInstallMessageHandler([](QtMsgType type, const QMessageLogContext &, const QString &text) {
        if (type == QtDebugMsg || type == QtInfoMsg) {
            return;
        }
        if (innermost == nullptr) {
            warning(text);
        } else if (!innermost->m_reasons.contains(text)) {
            innermost->m_reasons.append(text);
        }
    });
}

void ServiceLog::leaveNoticesOut()
{
    areNoticesLeftOut = true;
}

void ServiceLog::write(Level level, const QString &text)
{
    if (areNoticesLeftOut && level > Level::Warning) {
        return;
    }
    QByteArray line;
    if (isJournalListening()) {
        line = '<' + QByteArray::number(static_cast<int>(level)) + '>';
    } else {
        line = programName() + ": " + nameOf(level);
    }
    line += inOneLine(text).toUtf8() + '\n';
    // In one call, so that the lines of two threads do not mix. Nowhere is left to report a failure.
    while (::write(STDERR_FILENO, line.constData(), static_cast<std::size_t>(line.size())) < 0
           && errno == EINTR) { }
}

LibraryReasons::LibraryReasons() : m_outer(innermost)
{
    innermost = this;
}

LibraryReasons::~LibraryReasons()
{
    innermost = m_outer;
}

QString LibraryReasons::text() const
{
    const QString all = m_reasons.join(QStringLiteral("; ")).simplified();
    return all.size() > longestReason ? all.left(longestReason) + QStringLiteral(" ...") : all;
}
