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
