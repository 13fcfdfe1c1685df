#pragma once

#include "configuration/ConfigurationValueText.h"

#include <QString>
#include <QVariant>

/// What a URL of a configuration names: a leaf, or one cell of an array.
struct ConfigurationTarget
{
    QString url;
    ConfigurationLeaf leaf;
    ConfigurationValueRules rules;
    QVariant value;
    QString unit;
    bool isCell;
};

ConfigurationTarget targetOf(const ConfigurationLeaf &leaf);
/// The leaf, or the cell at `URL#ROW,COLUMN`. A Failure of NotFound if there is none.
ConfigurationTarget targetAt(const ConfigurationSource &source, const QString &url);

/// Whether a URL to be read stands for any number of values: it has a star, and no value has it as its own.
bool isPattern(const ConfigurationSource &source, const QString &url);
/// The leaves that a pattern leads to; with `#ROW,COLUMN` that cell of each array among them. A Failure of
/// NotFound if there is none.
QVector<ConfigurationTarget> targetsOf(const ConfigurationSource &source, const QString &pattern);
/// The arrays that a pattern leads to. A Failure of NotFound if there is none.
QVector<ConfigurationLeaf> arraysOf(const ConfigurationSource &source, const QString &pattern);
