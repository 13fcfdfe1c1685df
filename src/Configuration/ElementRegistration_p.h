#pragma once

#include "Configuration/ConfigurationAndProcessDataBase.h"
#include "Factories/Factory.h"

#include <QString>

/// Which leaf class stands behind a file postfix, and which classes of elements are known here.
namespace ElementRegistration {

using VEXOFactories::LeafFactory;

// Set before the leaf classes are registered, that is, while the library is loaded.
extern const QString configurationPostfix;
extern const QString processDescriptionPostfix;

/// True for an element of a class of this library itself. One of a class derived from it may answer
/// in its own way, and has to be asked each time.
bool isOfOwnClass(const ConfigurationAndProcessDataBase &element);

/// The leaf that @p creator would make, if it makes a class of this library; null for any other.
ConfigurationAndProcessDataBase::BaseClassSharedPointer createOwnLeaf(
    const LeafFactory::AbstractCreator &creator, const DescribedElement &described);

} // namespace ElementRegistration
