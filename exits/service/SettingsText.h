#pragma once

#include "service/Settings.h"

/// The text of a configuration file on its way into Settings, line by line.
class SettingsText
{
public:
    SettingsText(const ProgramSyntax &syntax, const QString &name, Settings &target)
        : m_syntax(syntax)
        , m_name(name)
        , m_target(target)
        , m_group(&target.m_settings)
    {
    }

    /// Throws a Refusal.
    void take(const QByteArray &text);

private:
    void takeLine(const QString &line);
    void takeSection(const QString &line, int column);
    void takeSetting(const QString &line, int column);
    [[noreturn]] void refuse(int column, const QString &reason) const;

    const ProgramSyntax &m_syntax;
    QString m_name;
    Settings &m_target;
    SettingGroup *m_group;
    int m_line = 0;
};
