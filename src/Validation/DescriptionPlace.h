#pragma once

#include <QString>

/// Where something stands in the text of a description.
struct DescriptionPlace
{
    QString file;   ///< as it was given, or below the folder that was given
    int line = 1;   ///< from 1
    int column = 1; ///< from 1, in characters of the UTF-8 text
};
