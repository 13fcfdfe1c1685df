#pragma once

#include "Companion/TesselExport.h"
#include "Configuration/ElementProperties.h"

#include <QHash>
#include <QJsonObject>
#include <QList>
#include <QMetaType>
#include <QObject>
#include <QSharedPointer>
#include <QString>
#include <QStringList>
#include <QVariant>

class ConfigurationDataValue;
class ProcessDataValue;
struct DescribedElement;

using ProcessDataValueSharedPointer = QSharedPointer<ProcessDataValue>;

/// One element of a description tree: a node or a leaf with its properties.
///
/// An element keeps every key of its JSON object as a property. Parents own their children, there
/// is no way from a child to its parent, and releasing the root releases the tree. Not
/// thread-safe: even a look-up by URL may detach a shared container.
class TESSEL_EXPORT ConfigurationAndProcessDataBase : public QObject
{
    Q_OBJECT

public:
    /// In which elements and trees travel. Null means failure.
    using BaseClassSharedPointer = QSharedPointer<ConfigurationAndProcessDataBase>;
    /// Property key to value.
    using PropertyMap = QHash<QString, QVariant>;
    /// Child key, a piece of a URL, to child.
    using ChildMap = QHash<QString, BaseClassSharedPointer>;
    /// What collectElements() fills.
    using ListElements = QList<BaseClassSharedPointer>;

    /// What became of a write. Below SetValueTargetMissing it was a success, and only
    /// SetValueChanged leads to signals.
    enum SetValueStatus {
        SetValueChanged = 0,       ///< The new value was stored.
        SetValueUnchanged = 1,     ///< The new value equals the stored one; nothing was stored.
        SetValueTargetMissing = 2, ///< No such element, or no such key inside a nested property.
        SetValueRegularExpressionMismatch = 3, ///< The element's pattern refuses the value.
        SetValuePropertyPathInvalid = 4 ///< No such property, or an index that leads nowhere.
    };
    Q_ENUM(SetValueStatus)

    /// An element with the properties of @p json; its children are added afterwards.
    ConfigurationAndProcessDataBase(const QJsonObject &json, QObject *parent);
    ~ConfigurationAndProcessDataBase() override;

    /// Takes the keys of @p json in as properties, value and limits converted to the element's data
    /// type. What cannot be converted is kept as an invalid variant. The children of a tree node
    /// are no property.
    void initPropertyMap(const QJsonObject &json);

    /// The element at @p url, a tree node as well as a leaf. Null if there is none; the empty URL
    /// addresses nothing.
    virtual const BaseClassSharedPointer getLeaf(const QString &url);
    /// The same for a URL that is split into its pieces.
    virtual const BaseClassSharedPointer getLeaf(const QStringList &pieces);
    /// The configuration leaf at @p url; null also if the element there is of another class.
    QSharedPointer<ConfigurationDataValue> getLeafConfigurationData(const QString &url);
    /// The process leaf at @p url; null also if the element there is of another class.
    ProcessDataValueSharedPointer getLeafProcessDataValue(const QString &url);

    /// Whether getLeaf() would find an element at @p url.
    virtual bool isUrlValid(const QString &url);
    /// The same for a URL that is split into its pieces.
    virtual bool isUrlValid(const QStringList &pieces);

    /// The children by their keys, in no particular order; empty for a leaf.
    const ChildMap &getChildMap() const { return m_childs; }
    /// Children of this node alone, without those further down.
    int getNumberOfChilds() const { return m_childs.size(); }

    /// True if @p value is the no-input indicator and @p dataType names a number or a selector.
    bool isNoInputValueIndicatorSet(const QString &dataType, const QVariant &value) const;
    /// By the `type` property: true for every integer and floating-point type.
    bool isNumberType() const;
    /// True for a number in which nothing has been entered.
    bool isNumberNoInput() const;
    /// True for a selector in which nothing has been selected.
    bool isSelectorNoInput() const;

    /// The property under @p key, which may be a nested path such as `a/b[1]`. Invalid if nothing
    /// is there.
    virtual QVariant getProperty(const QString &key) const;
    /// False also for a property that is held as an invalid variant.
    virtual bool hasProperty(const QString &key) const;

    /// Writes an existing property, given by key or nested path, and emits both propertyChanged()
    /// signals if that changed it.
    virtual SetValueStatus setProperty(const QString &key, const QVariant &value);
    /// The same without signals.
    virtual SetValueStatus setPropertyNoSignalEmit(const QString &key, const QVariant &value);
    /// Adds or overwrites one property. The key is taken as it stands, not as a path.
    virtual void addProperty(const QString &key, const QVariant &value);
    /// addProperty() for each entry.
    virtual void addProperties(const PropertyMap &properties);
    /// Removes properties; a missing one is passed over. Keys are taken as they stand.
    virtual void removeProperties(const QStringList &keys);
    /// A copy of all properties.
    virtual PropertyMap getProperties();

    /// Inserts the element, with all below it, into @p json as a description file holds it.
    virtual void getContentAsQJsonObject(QJsonObject &json) const;

    /// Appends all leaves below this node, depth first; with @p sorted the children of each node
    /// stand by display position.
    virtual void collectElements(ListElements &elements, bool sorted) const;
    /// Appends the URLs of all leaves below this node, each beginning with @p prefix and "/".
    virtual void collectUrlsOfElements(QStringList &urls, QString &prefix) const;

Q_SIGNALS: // clazy:excludeall=overloaded-signal both are part of the interface
    /// Emitted by a write that changed a property, with its key or path and the new value.
    void propertyChanged(const QString &strKey, const QVariant &value);
    /// Emitted after the signal with arguments. In a parsed tree it also reaches every node on the
    /// way up to the root.
    void propertyChanged();

protected:
    /// The element that a description read from its text has there. For the classes of the library.
    Q_DECL_HIDDEN explicit ConfigurationAndProcessDataBase(const DescribedElement &described);

    /// Value and limits are held in the element's data type.
    ElementProperties m_properties;
    /// Empty for a leaf.
    ChildMap m_childs;
    /// Type names with the types in which their values are held.
    QHash<QString, QMetaType::Type> m_dataTypeMap;

private:
    Q_DISABLE_COPY(ConfigurationAndProcessDataBase)

    /// What initPropertyMap() does, for an element without properties.
    Q_DECL_HIDDEN void readProperties(const DescribedElement &described);
};

/// Less-than by display position. An element without a position equals every other.
TESSEL_EXPORT bool compareElements(
    const ConfigurationAndProcessDataBase::BaseClassSharedPointer &left,
    const ConfigurationAndProcessDataBase::BaseClassSharedPointer &right);
