#pragma once

#include <QString>

/// Text in the cells of a terminal, of which wide characters take two. The process must have taken its locale
/// from the environment.

/// Which characters the terminal shows.
enum class Characters {
    Ascii,
    Unicode ///< The locale is one of UTF-8.
};
Characters charactersOfLocale();

/// The text as cells can hold it: nothing in it moves the cursor, changes a neighbour, or takes no cell. What
/// would do that becomes a visible escape such as `\u001b`, and what Characters::Ascii lacks a question mark.
QString cellText(const QString &text, Characters characters);
/// Cells that such a text takes.
int cellWidth(const QString &text);
/// Such a text in exactly @p cells cells: filled with blanks, or cut, with a mark at its end.
QString leftInCells(const QString &text, int cells, Characters characters);
/// The same with the blanks in front.
QString rightInCells(const QString &text, int cells, Characters characters);
