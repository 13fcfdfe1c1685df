#include "text/Output.h"

#include "text/Failure.h"

#include <cerrno>

#include <unistd.h>

namespace {

/// 0, or errno of the write that failed.
int writeAll(int fd, const QByteArray &bytes)
{
    int written = 0;
    while (written < bytes.size()) {
        const auto count = ::write(fd, bytes.constData() + written,
                                   static_cast<std::size_t>(bytes.size() - written));
        if (count < 0 && errno != EINTR) {
            return errno;
        }
        written += count < 0 ? 0 : static_cast<int>(count);
    }
    return 0;
}

bool isControl(QChar character)
{
    return character.category() == QChar::Other_Control
           || character.category() == QChar::Other_Format
           || character.category() == QChar::Separator_Line
           || character.category() == QChar::Separator_Paragraph;
}

QString escapeOf(QChar character)
{
    switch (character.unicode()) {
    case '\n': return QStringLiteral("\\n");
    case '\r': return QStringLiteral("\\r");
    case '\t': return QStringLiteral("\\t");
    default: return QStringLiteral("\\u%1").arg(character.unicode(), 4, 16, QLatin1Char('0'));
    }
}

} // namespace

void writeOutput(const QString &text)
{
    const int error = writeAll(STDOUT_FILENO, text.toUtf8());
    if (error == EPIPE) {
        throw OutputClosed();
    }
    if (error != 0) {
        throw Failure{ExitCode::InputOutputFile,
                      QStringLiteral("standard output: %1").arg(qt_error_string(error))};
    }
}

void writeBesideAnswer(const QString &text)
{
    printBesideAnswer([&text] { writeOutput(text); });
}

void printBesideAnswer(const std::function<void()> &print)
{
    try {
        print();
    } catch (const OutputClosed &) {
        // Whoever asked still waits for the exit code.
    }
}

void LongOutput::add(const QString &piece)
{
    constexpr int enough = 64 * 1024;
    m_waiting += piece;
    if (m_waiting.size() >= enough) {
        finish();
    }
}

void LongOutput::finish()
{
    writeOutput(m_waiting);
    m_waiting.clear();
}

void writeErrorLine(const QString &line)
{
    // There is no place left to report that this line could not be written.
    writeAll(STDERR_FILENO, printable(line).toUtf8() + '\n');
}

QString printable(const QString &text)
{
    QString result;
    result.reserve(text.size());
    for (const QChar character : text) {
        if (isControl(character)) {
            result += escapeOf(character);
        } else {
            result += character;
        }
    }
    return result;
}
