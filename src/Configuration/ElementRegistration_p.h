#pragma once

#include "Configuration/ConfigurationAndProcessDataBase.h"
#include "Factories/Factory.h"

#include <QJsonObject>
#include <QString>

/// Which leaf class stands behind a file postfix.
namespace ElementRegistration {

using LeafFactory = VEXOFactories::Factory<ConfigurationAndProcessDataBase, const QJsonObject &>;

// Set before the leaf classes are registered, that is, while the library is loaded.
extern const QString configurationPostfix;
extern const QString processDescriptionPostfix;

} // namespace ElementRegistration
