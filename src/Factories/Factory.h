#pragma once

#include "Companion/TesselExport.h"

#include <QHash>
#include <QString>

#include <memory>
#include <unordered_map>

class ConfigurationAndProcessDataBase;
class QJsonObject;
class QObject;

namespace VEXOFactories {

/// Hash functor of the factory's table.
struct KeyHasher
{
    /// Qt's hash of the text, the same in every process.
    std::size_t operator()(const QString &key) const { return qHash(key, 0); }
};

/// Makes products of one family by a text key.
///
/// @tparam Product    base class of the family
/// @tparam Arguments  what the products' constructors take before the parent object
///
/// The table is written while static objects are constructed and only read afterwards, so any
/// thread may look creators up then. It stays until the process ends, and is not destroyed.
template <class Product, class... Arguments>
class Factory
{
public:
    /// Knows how to make one kind of product.
    class AbstractCreator
    {
    public:
        AbstractCreator() = default;
        /// A new product without a parent, owned by the caller.
        virtual Product *create(Arguments... arguments) const = 0;
        virtual ~AbstractCreator() = default;

    private:
        Q_DISABLE_COPY(AbstractCreator)
    };

    template <class T>
    /// Makes a T.
    class Creator : public AbstractCreator
    {
    public:
        Product *create(Arguments... arguments) const override
        {
            return new T(arguments..., static_cast<QObject *>(nullptr));
        }
    };

    /// The one table of the family.
    static Factory &instance()
    {
        static Factory &factory = *new Factory;
        return factory;
    }

    /// A creator that is already there under @p key is replaced and destroyed.
    void registerCreator(const QString &key, std::unique_ptr<AbstractCreator> creator)
    {
        m_creators[key] = std::move(creator);
    }

    /// The creator under @p key, owned by the factory; null if there is none.
    const AbstractCreator *findCreator(const QString &key) const
    {
        const auto found = m_creators.find(key);
        return found == m_creators.cend() ? nullptr : found->second.get();
    }

private:
    std::unordered_map<QString, std::unique_ptr<AbstractCreator>, KeyHasher> m_creators;
};

/// The factory of the leaves of description trees.
using LeafFactory = Factory<ConfigurationAndProcessDataBase, const QJsonObject &>;

/// Held by the library, which looks there for the leaf class of a description's postfix. A program
/// that registers a class of its own, before it parses, gets its leaves from the parser.
template <>
TESSEL_EXPORT LeafFactory &LeafFactory::instance();

} // namespace VEXOFactories
