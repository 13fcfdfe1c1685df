#pragma once

#include "Configuration/ConfigurationAndProcessDataTreeNode.h"
#include "support/LogCapture.h"

#include <algorithm>

/// A description of one leaf that can be told by its value.
inline QByteArray leaf(const QByteArray &value)
{
    return R"({"type":"string","value":")" + value + R"("})";
}

/// The value of the leaf at @p url, and a text that no test uses where there is none.
inline QString valueAt(const ConfigurationAndProcessDataBase::BaseClassSharedPointer &root,
                       const QString &url)
{
    const auto found = root->getLeaf(url);
    return found.isNull() ? QString("(nothing)") : found->getProperty("value").toString();
}

inline QStringList childNames(
    const ConfigurationAndProcessDataBase::BaseClassSharedPointer &element)
{
    QStringList names = element->getChildMap().keys();
    std::sort(names.begin(), names.end());
    return names;
}

inline LogLine noDescription()
{
    return debugLine("No description file found!");
}

/// What directories without folder description tell.
inline QList<LogLine> noDescriptions(int directories)
{
    QList<LogLine> lines;
    for (int line = 0; line < 3 * directories; ++line) {
        lines.append(noDescription());
    }
    return lines;
}
