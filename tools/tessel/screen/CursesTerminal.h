#pragma once

#include "screen/ScreenPicture.h"
#include "text/Terminal.h"

#include <QString>
#include <QVector>

#include <optional>

/// The terminal as a full screen, from its construction to its destruction.
///
/// Then it is as it was found: its modes, its cursor and what it showed before. One at a time. Signals are
/// nothing it hears of: SignalWait must hold them.
class CursesTerminal
{
public:
    /// What somebody pressed.
    struct Key
    {
        enum class What {
            Character,
            Up,
            Down,
            Left,
            Right,
            PageUp,
            PageDown,
            Home,
            End,
            Enter,
            Erase,
            Escape,
            Other ///< one without a meaning
        };

        What what = What::Other;
        QString character = {};
    };

    /// A Failure of WrongUse if there is no terminal, or none that can do it; @p command is in its words.
    static void require(const QString &command);
    /// The same if that is so.
    explicit CursesTerminal(const QString &command);
    ~CursesTerminal();

    CursesTerminal(const CursesTerminal &) = delete;
    CursesTerminal &operator=(const CursesTerminal &) = delete;

    TerminalSize size() const;
    /// Sends what has changed since the last picture.
    void show(const QVector<ScreenLine> &lines);
    /// The next key that was pressed, if there is one. Does not wait.
    std::optional<CursesTerminal::Key> key();
    /// Whether nobody can press a key any more.
    bool isGone() const;

    /// Takes the size that the terminal has now.
    void resize();
    /// Draws everything anew, as something else may have been written there.
    void drawAnew();
    /// Gives the terminal back as it was found, stops this process, and takes it again when it goes on.
    void stop();
    /// Takes the terminal again, behind a stop that stop() has not made.
    void resume();

private:
    void takeColours();
    int attributesOf(const ScreenSpan &span) const;

    void *m_screen = nullptr; ///< of the library for terminals
    bool m_isColoured = false;
};
