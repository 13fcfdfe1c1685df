#pragma once

#include <QString>

/// The text in lines of at most 80 characters, broken at blanks, with line ends. Its first line begins with
/// @p first, the others with as many blanks. Control characters become visible escapes; a word that is too
/// long stays whole, so that it can be copied.
QString wrappedText(const QString &first, const QString &text);

/// A fact of a screen: its name in a column of its own, and what is to be said of it beside.
QString factLine(const QString &name, const QString &text);
