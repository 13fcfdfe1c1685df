#pragma once

#include "Configuration/ConfigurationDataValue.h"
#include "TesselModels/ModelEnumerations.h"

#include <QString>
#include <QVariant>

/// What a person or a program has entered for a value of a configuration.
struct ConfigurationEntry
{
    QVariant value; ///< of the type of the element
    /// Not ConfigurationChanged: it is none, for the reason in the text.
    TesselModels::ConfigurationStatus status = TesselModels::ConfigurationChanged;
    QString text;

    /// Converts @p given and holds it to limits and the read-only mark.
    static ConfigurationEntry of(const ConfigurationDataValue &element, const QVariant &given);
};

/// The value for a person: of selectors the entry, of arrays JSON, empty if nothing has been entered.
QString configurationText(const QVariant &value, const QStringList &selection);

/// The words for what a checked write has answered.
QString configurationStatusText(TesselModels::ConfigurationStatus status);
