#include "Companion/PropertyManagerConst.h"
#include "Configuration/ConfigurationAndProcessDataTreeNode.h"
#include "Configuration/ConfigurationDataValue.h"
#include "Configuration/DescriptionTree_p.h"
#include "Configuration/ElementRegistration_p.h"
// The one look upwards from this room: the factory has to know every leaf class by name.
#include "ProcessData/Linux/ProcessDataValue.h"

#include <memory>
#include <typeinfo>

// Not in the header like that of other factories: a program that is linked against the library would
// have a table of its own there, and register into it what the parser never finds.
template <>
VEXOFactories::LeafFactory &VEXOFactories::LeafFactory::instance()
{
    static LeafFactory &factory = *new LeafFactory;
    return factory;
}

namespace ElementRegistration {

// Objects of one file are constructed from top to bottom, so the postfixes stand before the
// registrations that use them.
// clazy:excludeall=non-pod-global-static the factory is filled when the library is loaded
const QString configurationPostfix = PropertyManagerConst::getConfigFileExtension();
const QString processDescriptionPostfix =
    PropertyManagerConst::getProcessDataDescriptionFileExtension();

namespace {

/// Enters the creator of one leaf class into the factory when it is constructed. The factory, not
/// this object, owns the creator.
template <class Leaf>
class Registration
{
public:
    explicit Registration(const QString &postfix)
    {
        LeafFactory::instance().registerCreator(postfix,
                                                std::make_unique<LeafFactory::Creator<Leaf>>());
    }
};

const Registration<ConfigurationDataValue> configurationRegistration(configurationPostfix);
const Registration<ProcessDataValue> processDescriptionRegistration(processDescriptionPostfix);

} // namespace

bool isOfOwnClass(const ConfigurationAndProcessDataBase &element)
{
    const std::type_info &type = typeid(element);
    return type == typeid(ConfigurationDataValue) || type == typeid(ProcessDataValue)
           || type == typeid(ConfigurationAndProcessDataTreeNode);
}

ConfigurationAndProcessDataBase::BaseClassSharedPointer createOwnLeaf(
    const LeafFactory::AbstractCreator &creator, const DescribedElement &described)
{
    const std::type_info &type = typeid(creator);
    if (type == typeid(LeafFactory::Creator<ConfigurationDataValue>)) {
        return described.make<ConfigurationDataValue>();
    }
    if (type == typeid(LeafFactory::Creator<ProcessDataValue>)) {
        return described.make<ProcessDataValue>();
    }
    return {};
}

} // namespace ElementRegistration
