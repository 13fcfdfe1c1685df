#pragma once

#include "service/SettingSyntax.h"

#include <QByteArray>
#include <QMap>
#include <QString>
#include <QStringList>
#include <QVector>

/// The settings under one heading of a configuration file, each checked against its syntax.
class SettingGroup
{
public:
    explicit SettingGroup(QVector<SettingSyntax> syntax) : m_syntax(std::move(syntax)) { }

    /// Whether the file or the command line gives it.
    bool isSet(const QString &name) const { return m_values.contains(name); }
    /// The value, or the usual one. The name has to be one of the syntax.
    QString text(const QString &name) const;
    qint64 number(const QString &name) const { return text(name).toLongLong(); }
    bool flag(const QString &name) const { return text(name) == QLatin1String("yes"); }
    QStringList list(const QString &name) const { return m_values.value(name); }

    const QVector<SettingSyntax> &syntax() const { return m_syntax; }
    /// Null for a name that is not in the syntax.
    const SettingSyntax *find(const QString &name) const;
    /// Why @p value is none of the setting; empty if it is one.
    static QString problemOf(const SettingSyntax &setting, const QString &value);
    /// A list grows, anything else is replaced.
    void add(const SettingSyntax &setting, const QString &value);
    /// What @p other gives stands here instead.
    void override(const SettingGroup &other);

private:
    QVector<SettingSyntax> m_syntax;
    QMap<QString, QStringList> m_values;
};

/// What a program was told, by its command line and the configuration file that `--config` names.
///
/// The file has a `key = value` a line, `#` begins a line of comment, and `[name argument]` a section that
/// lasts to the next one. What the command line gives wins over the file. Reading throws a Refusal that
/// names place, key and what was probably meant.
class Settings
{
public:
    struct Section
    {
        QString name;
        QString argument;
        SettingGroup settings;
    };

    explicit Settings(const ProgramSyntax &syntax);

    /// From the words behind the name of the program, and the file that they name.
    static Settings fromCommandLine(const ProgramSyntax &syntax, const QStringList &words);
    /// From the text of a file; @p name stands in messages.
    static Settings fromText(const ProgramSyntax &syntax, const QByteArray &text,
                             const QString &name);

    const SettingGroup &settings() const { return m_settings; }
    /// In the order of the file.
    const QVector<Section> &sections() const { return m_sections; }
    /// The description that the command line names, else the setting `description`, else TESSEL_DIR. Throws a
    /// Refusal where none does.
    QString description() const;
    /// What stands on the command line without an option, the first of it. More than one is refused, unless the
    /// program takes several.
    QString positional() const { return m_positionals.value(0); }
    const QStringList &positionals() const { return m_positionals; }
    bool isHelpAsked() const { return m_isHelpAsked; }
    bool isVersionAsked() const { return m_isVersionAsked; }

    /// Standard output of `--help`.
    static QString helpText(const ProgramSyntax &syntax);

    /// The most bytes that a configuration file may have.
    static constexpr int sm_mostBytes = 1024 * 1024;

private:
    friend class SettingsText;

    SettingGroup m_settings;
    QVector<Section> m_sections;
    QStringList m_positionals;
    QString m_file;
    bool m_isHelpAsked = false;
    bool m_isVersionAsked = false;

    void takeWords(const ProgramSyntax &syntax, QStringList words);
    void takeOption(const ProgramSyntax &syntax, const QString &word, QStringList &rest);
};
