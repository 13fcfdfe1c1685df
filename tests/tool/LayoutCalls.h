#pragma once

#include "ToolDescription.h"
#include "ToolProcess.h"

#include <QProcess>

// What the tests of `tessel layout` have in common.

inline ToolResult layout(const QStringList &arguments, const QStringList &environment = {})
{
    return runTool(QStringList(QStringLiteral("layout")) + arguments, environment);
}

/// A value with its state, a hole, and two bits of one byte.
inline QString smallFile(ToolDescription &description)
{
    description.add(QStringLiteral("n/a"), QStringLiteral("int32"),
                    ToolDescription::Metadata::ErrorState, 4);
    description.add(QStringLiteral("n/b"), QStringLiteral("bit"), ToolDescription::Metadata::None,
                    1,
                    {{QStringLiteral("offsetSharedMemory"), 12}, {QStringLiteral("bitmask"), 1}});
    description.add(QStringLiteral("n/c"), QStringLiteral("bit"), ToolDescription::Metadata::None,
                    1,
                    {{QStringLiteral("offsetSharedMemory"), 12}, {QStringLiteral("bitmask"), 2}});
    description.setRoot(QStringLiteral("sizeOfSharedMemory"), 14);
    return description.write();
}

/// The tool in a shell, behind @p before and with a redirection.
inline ToolResult inShell(const QString &before, const QStringList &arguments,
                          const QString &behind = {})
{
    QProcess shell;
    shell.start(QStringLiteral("sh"),
                QStringList{QStringLiteral("-c"), before + QStringLiteral("exec \"$@\" ") + behind,
                            QStringLiteral("sh"), QStringLiteral(TESSEL_TOOL),
                            QStringLiteral("layout")}
                    + arguments);
    shell.waitForFinished(60000);
    return {shell.exitCode(), QString::fromUtf8(shell.readAllStandardOutput()),
            QString::fromUtf8(shell.readAllStandardError())};
}
