#include "text/Terminal.h"

#include "text/Output.h"

#include <QByteArray>

#include <csignal>

#include <sys/ioctl.h>
#include <unistd.h>

namespace {

const QLatin1String hideCursor("\033[?25l");
const QLatin1String showCursor("\033[?25h");
const QLatin1String clearScreen("\033[H\033[2J");
const QLatin1String clearToEndOfLine("\033[K");
const QLatin1String clearBelow("\033[J");

} // namespace

bool isOutputTerminal()
{
    const QByteArray type = qgetenv("TERM");
    return isatty(STDOUT_FILENO) == 1 && !type.isEmpty() && type != "dumb";
}

bool isColourWanted()
{
    return isOutputTerminal() && qEnvironmentVariableIsEmpty("NO_COLOR");
}

TerminalSize TerminalPicture::size()
{
    winsize window{};
    if (ioctl(STDOUT_FILENO, TIOCGWINSZ, &window) != 0 || window.ws_row == 0
        || window.ws_col == 0) {
        return {24, 80};
    }
    return {window.ws_row, window.ws_col};
}

void TerminalPicture::show(const QStringList &lines)
{
    QString picture = hideCursor;
    if (m_shownLines > 0) {
        picture += QStringLiteral("\033[%1A").arg(m_shownLines);
    }
    for (const auto &line : lines) {
        picture += QLatin1Char('\r') + line + clearToEndOfLine + QLatin1Char('\n');
    }
    // All in one write: the terminal never shows half a picture.
    writeOutput(picture + clearBelow + showCursor);
    m_shownLines = lines.size();
}

void TerminalPicture::startAnew()
{
    writeOutput(clearScreen);
    m_shownLines = 0;
}

void TerminalPicture::suspend()
{
    ::raise(SIGSTOP);
    m_shownLines = 0;
}
