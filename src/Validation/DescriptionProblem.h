#pragma once

#include <QString>

/// What is wrong with a description, and where.
struct DescriptionProblem
{
    /// How bad it is.
    enum class Level {
        Error,  ///< refused, lost or misread when it is loaded, built, bound or looked up
        Warning ///< works, and deserves a look
    };

    QString file;   ///< as it was given, or below the folder that was given
    int line = 1;   ///< from 1; what concerns a whole file, folder or link stands at 1:1
    int column = 1; ///< from 1, in characters of the UTF-8 text
    Level level = Level::Error; ///< that of its rule
    QString rule;               ///< name of a DescriptionRule
    QString url;                ///< of the element, as applications address it; empty for a root
    QString text;               ///< a sentence without its full stop
};
