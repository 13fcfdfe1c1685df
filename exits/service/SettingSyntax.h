#pragma once

#include <QString>
#include <QVector>

/// A key of a configuration file. Outside of all sections it is an option of the same name as well.
struct SettingSyntax
{
    enum class Type {
        Text,   ///< Any text that is not empty.
        Number, ///< A whole number from least to most.
        Flag,   ///< `yes` or `no`; as an option it stands alone, for `yes`.
        List    ///< A text; the key may stand several times.
    };

    QString name;
    Type type;
    /// For the help, such as ADDRESS:PORT.
    QString placeholder;
    /// For the help, one sentence.
    QString summary;
    /// What holds without the key; of a number, a flag, a text. A list begins empty.
    QString usual;
    qint64 least = 0;
    qint64 most = 0;
    /// Only as an option, never in a file: what a run is for, not how.
    bool isOptionOnly = false;
    /// Of the option in short; null: none.
    QChar letter = {};
};

/// A kind of section, `[name argument]`, that a file may hold any number of times.
struct SectionSyntax
{
    QString name;
    /// For messages, such as URL.
    QString argument;
    QVector<SettingSyntax> settings;
};

/// What a program takes.
struct ProgramSyntax
{
    QString program; ///< tessel-metrics
    QString summary;
    QVector<SettingSyntax> settings;
    QVector<SectionSyntax> sections;
    QString examples;
    /// Whether several descriptions may stand on the command line.
    bool takesSeveral = false;
    /// Whether a description is none of its words.
    bool takesNone = false;
};
