// A plugin of an application, with a leaf class of its own.
#include "Configuration/ConfigurationDataValue.h"
#include "Factories/Factory.h"

namespace {

using VEXOFactories::LeafFactory;

class PluginLeaf : public ConfigurationDataValue
{
public:
    using ConfigurationDataValue::ConfigurationDataValue;

    QVariant getProperty(const QString &key) const override
    {
        return key == QLatin1String("class") ? QVariant(QStringLiteral("plugin"))
                                             : ConfigurationDataValue::getProperty(key);
    }
};

} // namespace

extern "C" Q_DECL_EXPORT void registerLeaf(const char *postfix)
{
    LeafFactory::instance().registerCreator(QString::fromLatin1(postfix),
                                            std::make_unique<LeafFactory::Creator<PluginLeaf>>());
}

extern "C" Q_DECL_EXPORT bool isKnown(const char *postfix)
{
    return LeafFactory::instance().findCreator(QString::fromLatin1(postfix)) != nullptr;
}
