#include "screen/CursesTerminal.h"

#include "text/Failure.h"

#include <csignal>
#include <cstdio>
#include <vector>

// Its macros have names such as move, clear and timeout.
#define NCURSES_NOMACROS
#include <curses.h>
#include <poll.h>
#include <term.h>
#include <unistd.h>
// So have some of its capabilities.
#undef columns
#undef lines

namespace {

using Key = CursesTerminal::Key;

enum Pair : short { TitlePair = 1, NodePair, GoodPair, DoubtfulPair, BadPair };

/// Milliseconds in which the rest of a key that begins with Esc comes.
constexpr int escapeDelay = 25;

[[noreturn]] void refuse(const QString &command, const QString &reason)
{
    throw Failure{ExitCode::WrongUse,
                  QStringLiteral("%1: --tui %2; see 'tessel %1 --help'").arg(command, reason)};
}

Key::What meaningOf(wint_t code)
{
    switch (code) {
    case KEY_UP: return Key::What::Up;
    case KEY_DOWN: return Key::What::Down;
    case KEY_LEFT: return Key::What::Left;
    case KEY_RIGHT: return Key::What::Right;
    case KEY_PPAGE: return Key::What::PageUp;
    case KEY_NPAGE: return Key::What::PageDown;
    case KEY_HOME: return Key::What::Home;
    case KEY_END: return Key::What::End;
    case KEY_ENTER: return Key::What::Enter;
    case KEY_BACKSPACE: return Key::What::Erase;
    default: return Key::What::Other;
    }
}

Key characterKey(wint_t code)
{
    constexpr wint_t escape = 27;
    constexpr wint_t backspace = 8;
    constexpr wint_t erase = 127;
    switch (code) {
    case '\n':
    case '\r': return {Key::What::Enter};
    case escape: return {Key::What::Escape};
    case backspace:
    case erase: return {Key::What::Erase};
    default: break;
    }
    const auto character = static_cast<uint>(code);
    return {Key::What::Character, QString::fromUcs4(&character, 1)};
}

} // namespace

void CursesTerminal::require(const QString &command)
{
    if (isatty(STDIN_FILENO) != 1 || isatty(STDOUT_FILENO) != 1) {
        refuse(command, QStringLiteral("needs a terminal as its input and output"));
    }
    const QString type = qEnvironmentVariable("TERM");
    int found = 0;
    // It would end the process by itself where there is no such terminal.
    const bool isKnown = !type.isEmpty() && ::setupterm(nullptr, STDOUT_FILENO, &found) == OK;
    if (!isKnown) {
        refuse(command, QStringLiteral("does not know the terminal '%1' of TERM").arg(type));
    }
    char *const move = ::tigetstr("cup");
    const bool canMove = move != nullptr && move != reinterpret_cast<char *>(-1);
    ::del_curterm(cur_term);
    if (!canMove) {
        refuse(command, QStringLiteral("needs a terminal that can move its cursor, not '%1' of "
                                       "TERM")
                            .arg(type));
    }
}

CursesTerminal::CursesTerminal(const QString &command)
{
    require(command);
    SCREEN *const screen = ::newterm(nullptr, stdout, stdin);
    if (screen == nullptr) {
        refuse(command, QStringLiteral("cannot use the terminal '%1' of TERM")
                            .arg(qEnvironmentVariable("TERM")));
    }
    m_screen = screen;
    ::cbreak();
    ::noecho();
    ::nonl();
    ::keypad(stdscr, TRUE);
    ::nodelay(stdscr, TRUE);
    ::set_escdelay(escapeDelay);
    ::curs_set(0);
    takeColours();
}

CursesTerminal::~CursesTerminal()
{
    ::curs_set(1);
    ::endwin();
    ::delscreen(static_cast<SCREEN *>(m_screen));
}

void CursesTerminal::takeColours()
{
    m_isColoured = isColourWanted() && ::has_colors();
    if (!m_isColoured) {
        return;
    }
    ::start_color();
    ::use_default_colors();
    constexpr short usual = -1;
    ::init_pair(TitlePair, COLOR_CYAN, usual);
    ::init_pair(NodePair, COLOR_BLUE, usual);
    ::init_pair(GoodPair, COLOR_GREEN, usual);
    ::init_pair(DoubtfulPair, COLOR_YELLOW, usual);
    ::init_pair(BadPair, COLOR_RED, usual);
}

int CursesTerminal::attributesOf(const ScreenSpan &span) const
{
    const auto coloured = [this](short pair) {
        return m_isColoured ? static_cast<attr_t>(COLOR_PAIR(pair)) : attr_t{0};
    };
    chtype attributes = span.isSelected ? A_REVERSE : A_NORMAL;
    switch (span.paint) {
    case Paint::Plain: break;
    case Paint::Title: attributes |= A_BOLD | coloured(TitlePair); break;
    case Paint::Node: attributes |= A_BOLD | coloured(NodePair); break;
    case Paint::Dim: attributes |= A_DIM; break;
    case Paint::Good: attributes |= coloured(GoodPair); break;
    case Paint::Doubtful: attributes |= A_BOLD | coloured(DoubtfulPair); break;
    case Paint::Bad: attributes |= A_BOLD | coloured(BadPair); break;
    }
    return static_cast<int>(attributes);
}

TerminalSize CursesTerminal::size() const
{
    return {getmaxy(stdscr), getmaxx(stdscr)};
}

void CursesTerminal::show(const QVector<ScreenLine> &lines)
{
    ::erase();
    for (int line = 0; line < lines.size(); ++line) {
        ::move(line, 0);
        for (const auto &span : lines[line]) {
            ::attrset(attributesOf(span));
            ::addwstr(span.text.toStdWString().c_str());
        }
    }
    ::refresh();
}

std::optional<Key> CursesTerminal::key()
{
    wint_t code = 0;
    switch (::get_wch(&code)) {
    case OK: return characterKey(code);
    case KEY_CODE_YES: return Key{meaningOf(code)};
    default: return std::nullopt;
    }
}

bool CursesTerminal::isGone() const
{
    // A terminal whose other side is closed can always be read, and says nothing.
    pollfd waited{STDIN_FILENO, POLLIN, 0};
    return ::poll(&waited, 1, 0) > 0 && (waited.revents & (POLLHUP | POLLERR | POLLNVAL)) != 0;
}

void CursesTerminal::resize()
{
    const TerminalSize now = TerminalPicture::size();
    ::resizeterm(now.rows, now.columns);
    drawAnew();
}

void CursesTerminal::drawAnew()
{
    ::clearok(curscr, TRUE);
}

void CursesTerminal::stop()
{
    ::curs_set(1);
    ::endwin();
    ::raise(SIGSTOP);
    resume();
}

void CursesTerminal::resume()
{
    ::reset_prog_mode();
    ::curs_set(0);
    resize();
    ::refresh();
}
