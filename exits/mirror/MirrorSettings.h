#pragma once

#include "mirror/DomainSettings.h"
#include "mirror/SetSource.h"
#include "service/Settings.h"

#include <QString>
#include <QStringList>

/// What `tessel-mirror send` takes.
ProgramSyntax sendSyntax();
/// What `tessel-mirror receive` takes.
ProgramSyntax receiveSyntax();
/// What `tessel-mirror status` takes.
ProgramSyntax statusSyntax();

/// The descriptions that @p settings name, by command line, configuration or environment, each once. Throws
/// a Refusal if there are none.
QStringList descriptionsOf(const Settings &settings);

/// From the settings of a sender.
SetSource::Pace paceOf(const SettingGroup &settings);
