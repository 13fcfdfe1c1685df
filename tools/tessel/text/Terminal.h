#pragma once

#include <QString>
#include <QStringList>

struct TerminalSize
{
    int rows;
    int columns;
};

/// Whether standard output is a terminal that can move its cursor.
bool isOutputTerminal();
/// Whether to use colours there: not with NO_COLOR in the environment.
bool isColourWanted();

/// Lines that are shown in place on the terminal, each picture over the one before.
///
/// The cursor is hidden only while a picture is being drawn and stands below it otherwise, so that
/// the terminal is in order however the program ends.
class TerminalPicture
{
public:
    static TerminalSize size();

    /// Shows the lines, of which each must fit the terminal's width and all its height.
    void show(const QStringList &lines);
    /// Clears the screen, for a terminal whose size has changed: the lines shown before may have
    /// been wrapped.
    void startAnew();
    /// Stops this process as the terminal asked. The next picture begins below what the terminal
    /// shows then.
    void suspend();

private:
    int m_shownLines = 0;
};
