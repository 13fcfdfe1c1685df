#pragma once

#include "ToolFolder.h"

// Where TwoFiles keeps its files.
inline const QString fileA = QStringLiteral("a.process.json");
inline const QString fileB = QStringLiteral("sub/b.process.json");

/// Two files, of which the second lies in a folder below.
class TwoFiles : public DescriptionDirectory
{
public:
    TwoFiles()
    {
        write(fileA, Description::root({{QStringLiteral("x"), Description::leaf(1, 6, 3)},
                                        {QStringLiteral("y"), Description::leaf(2, 4, 1)}}));
        write(fileB, Description::root({{QStringLiteral("z"), Description::leaf(1, 4, 1)}}));
    }
};
