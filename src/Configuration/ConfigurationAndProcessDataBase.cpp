#include "Configuration/ConfigurationAndProcessDataBase.h"

#include "Companion/ConfigurationAndProcessDataDefinitions.h"
#include "Configuration/ConfigurationAndProcessDataTools.h"
#include "Configuration/ConfigurationDataValue.h"
#include "Configuration/DescriptionTexts_p.h"
#include "Configuration/DescriptionTree_p.h"
#include "Configuration/ElementType_p.h"
#include "Configuration/FramedShape_p.h"
#include "Configuration/FramedValues_p.h"
#include "Configuration/FramingSilence_p.h"
#include "Configuration/HeldContainer_p.h"
#include "Configuration/ParsedDescriptions_p.h"
#include "Configuration/PropertyPath_p.h"
#include "Configuration/PropertyRecord_p.h"
#include "Configuration/UrlWalk_p.h"

#include <QDebug>
#include <QJsonValue>
#include <QVarLengthArray>

#include <limits>
#include <typeinfo>
#include <vector>

using Definitions = ConfigurationAndProcessDataDefinitions;
using Tools = ConfigurationAndProcessDataTools;
using BaseClassSharedPointer = ConfigurationAndProcessDataBase::BaseClassSharedPointer;
using SetValueStatus = ConfigurationAndProcessDataBase::SetValueStatus;

namespace {

/// Whether @p value, a number of a description, stays what it is as an `int`.
bool isWithinInt(const QVariant &value)
{
    if (value.userType() != QMetaType::LongLong) {
        return false;
    }
    const qint64 number = *static_cast<const qint64 *>(value.constData());
    return number >= std::numeric_limits<int>::min() && number <= std::numeric_limits<int>::max();
}

/// What cannot be converted is reported and becomes invalid.
QVariant convertedOrInvalid(const QVariant &value, QMetaType::Type dataType)
{
    // The usual case, without the search for a way from one type to the other.
    if (dataType == QMetaType::Int && isWithinInt(value)) {
        return static_cast<int>(*static_cast<const qint64 *>(value.constData()));
    }
    QVariant converted = value;
    if (!converted.convert(dataType)) {
        ParsedDescriptions::noteWhatCanBeSeen();
        // A failed attempt empties the variant, and the log is to show what was there before.
        qWarning() << "Wrong value type in config" << static_cast<int>(dataType) << value;
        return {};
    }
    return converted;
}

/// A value or limit of a description as the element holds it.
QVariant toHeldForm(const ConfigurationAndProcessDataBase &element, const QString &typeName,
                    QMetaType::Type dataType, const QVariant &value)
{
    if (element.isNoInputValueIndicatorSet(typeName, value)) {
        return Tools::getNoInputValueIndicator(dataType);
    }
    if (dataType == QMetaType::UnknownType) {
        return value;
    }
    return convertedOrInvalid(value, dataType);
}

/// The properties of an element on their way out of a description. They come in the order of their keys.
class GatheredProperties
{
public:
    explicit GatheredProperties(DescriptionTexts &texts) : m_texts(texts) { texts.beginElement(); }

    template <class Key, class Value>
    void add(const Key &key, const Value &value)
    {
        const PropertyKey &property = m_texts.nextKey(key);
        if (property.isValue && m_typeName == Definitions::getKeyDataTypeTreeNode()) {
            // The children of a node.
            m_texts.leaveOut();
            return;
        }
        m_values.append(m_texts.valueOf(value));
        if (property.isType && typeOf(m_values.last()) == QMetaType::QString) {
            m_typeName = heldBy<QString>(m_values.last());
        }
        if (property.isHeldInDataType) {
            m_heldInDataType.append(m_values.size() - 1);
        }
    }

    /// The type is known before the value, but not before the limits: what is held in the type is
    /// converted here.
    void deliver(const ConfigurationAndProcessDataBase &element,
                 const QHash<QString, QMetaType::Type> &dataTypes, ElementProperties &properties)
    {
        // Before anything is said: whoever takes a message may read another description.
        PropertyKinds &kinds = m_texts.endElement();
        const QMetaType::Type dataType = m_heldInDataType.isEmpty()
                                             ? QMetaType::UnknownType
                                             : dataTypes.value(m_typeName, QMetaType::UnknownType);
        for (const int index : m_heldInDataType) {
            m_values[index] = toHeldForm(element, m_typeName, dataType, m_values[index]);
        }
        PropertyRecord::fill(properties, kinds, m_values.data());
    }

private:
    DescriptionTexts &m_texts;
    QString m_typeName;
    QVarLengthArray<QVariant, 32> m_values;
    QVarLengthArray<int, 3> m_heldInDataType;
};

/// A leaf has nothing below it: any piece that is left leads nowhere.
void warnOfUrlPastLeaf(const QStringList &pieces)
{
    if (!pieces.isEmpty()) {
        qWarning() << "Wrong URL:" << pieces.join(QLatin1Char('/'));
    }
}

QVariant displayPosition(const ConfigurationAndProcessDataBase &element, const QString &key)
{
    return element.hasProperty(key) ? element.getProperty(key) : QVariant();
}

} // namespace

ConfigurationAndProcessDataBase::ConfigurationAndProcessDataBase(const QJsonObject &json,
                                                                 QObject *parent)
    : QObject(parent)
    , m_dataTypeMap(Definitions::getBasicDataTypeMapForProcessData())
{
    initPropertyMap(json);
}

ConfigurationAndProcessDataBase::ConfigurationAndProcessDataBase(const DescribedElement &described)
    : m_dataTypeMap(Definitions::getBasicDataTypeMapForProcessData())
{
    readProperties(described);
}

ConfigurationAndProcessDataBase::~ConfigurationAndProcessDataBase()
{
    // Out of the table before they die: whoever hears of that may look into it.
    ChildMap childs;
    childs.swap(m_childs);
}

void ConfigurationAndProcessDataBase::initPropertyMap(const QJsonObject &json)
{
    DescriptionTexts ownTexts;
    GatheredProperties gathered(*DescriptionTexts::current());
    for (auto entry = json.constBegin(); entry != json.constEnd(); ++entry) {
        gathered.add(entry.key(), entry.value());
    }
    gathered.deliver(*this, m_dataTypeMap, m_properties);
}

void ConfigurationAndProcessDataBase::readProperties(const DescribedElement &described)
{
    GatheredProperties gathered(described.texts);
    for (JsonText::Members member(described.object); member.isValid(); member.next()) {
        gathered.add(member.key(), member.value());
    }
    gathered.deliver(*this, m_dataTypeMap, m_properties);
}

// NOLINTNEXTLINE(readability-const-return-type): the signature is public and stays
const BaseClassSharedPointer ConfigurationAndProcessDataBase::getLeaf(const QString &url)
{
    if (!isOfNodeClass(*this)) {
        return getLeaf(splitUrl(url));
    }
    QStringView rest = url;
    const BaseClassSharedPointer *reached = followUrl(*this, rest);
    if (reached == nullptr) {
        return {};
    }
    // A copy, which keeps the element while it is asked.
    BaseClassSharedPointer element = *reached;
    // A child that could not be parsed is null, and nothing is below it.
    if (element.isNull() || rest.isEmpty()) {
        return element;
    }
    return element->getLeaf(splitUrl(rest));
}

// NOLINTNEXTLINE(readability-const-return-type): the signature is public and stays
const BaseClassSharedPointer ConfigurationAndProcessDataBase::getLeaf(const QStringList &pieces)
{
    warnOfUrlPastLeaf(pieces);
    return {};
}

QSharedPointer<ConfigurationDataValue> ConfigurationAndProcessDataBase::getLeafConfigurationData(
    const QString &url)
{
    const BaseClassSharedPointer leaf = getLeaf(url);
    const auto *const element = leaf.data();
    // The usual class, without a search through its bases.
    if (element != nullptr && typeid(*element) == typeid(ConfigurationDataValue)) {
        return leaf.staticCast<ConfigurationDataValue>();
    }
    return leaf.dynamicCast<ConfigurationDataValue>();
}

bool ConfigurationAndProcessDataBase::isUrlValid(const QString &url)
{
    if (!isOfNodeClass(*this)) {
        return isUrlValid(splitUrl(url));
    }
    QStringView rest = url;
    const BaseClassSharedPointer *reached = followUrl(*this, rest);
    if (reached == nullptr || rest.isEmpty()) {
        return reached != nullptr;
    }
    const BaseClassSharedPointer element = *reached;
    return !element.isNull() && element->isUrlValid(splitUrl(rest));
}

bool ConfigurationAndProcessDataBase::isUrlValid(const QStringList &pieces)
{
    warnOfUrlPastLeaf(pieces);
    return false;
}

bool ConfigurationAndProcessDataBase::isNoInputValueIndicatorSet(const QString &dataType,
                                                                 const QVariant &value) const
{
    // The value first, as it is the one that mostly decides.
    return Tools::isNoInputValueIndicatorSet(value)
           && (Tools::isNumberType(dataType) || Tools::isSelectorType(dataType));
}

bool ConfigurationAndProcessDataBase::isNumberType() const
{
    return Tools::isNumberType(*this);
}

bool ConfigurationAndProcessDataBase::isNumberNoInput() const
{
    return isNumberType()
           && Tools::isNoInputValueIndicatorSet(
               getProperty(Definitions::getKeyDataPropertyValue()));
}

bool ConfigurationAndProcessDataBase::isSelectorNoInput() const
{
    return Tools::isSelectorType(*this)
           && Tools::isNoInputValueIndicatorSet(
               getProperty(Definitions::getKeyDataPropertyValue()));
}

QVariant ConfigurationAndProcessDataBase::getProperty(const QString &key) const
{
    const QVariant *property = nullptr;
    if (PropertyRecord::answers(m_properties, key, property)) {
        return property == nullptr ? QVariant() : *property;
    }
    QVariant value;
    PropertyPath::readValue(m_properties, key, value);
    return value;
}

bool ConfigurationAndProcessDataBase::hasProperty(const QString &key) const
{
    const QVariant *property = nullptr;
    if (PropertyRecord::answers(m_properties, key, property)) {
        return property != nullptr && property->isValid();
    }
    QVariant value;
    PropertyPath::readValue(m_properties, key, value);
    return value.isValid();
}

SetValueStatus ConfigurationAndProcessDataBase::setProperty(const QString &key,
                                                            const QVariant &value)
{
    const SetValueStatus status = setPropertyNoSignalEmit(key, value);
    if (status == SetValueChanged) {
        Q_EMIT propertyChanged(key, value);
        Q_EMIT propertyChanged();
    }
    return status;
}

SetValueStatus ConfigurationAndProcessDataBase::setPropertyNoSignalEmit(const QString &key,
                                                                        const QVariant &value)
{
    return PropertyPath::writeValue(m_properties, key, value);
}

void ConfigurationAndProcessDataBase::addProperty(const QString &key, const QVariant &value)
{
    if (!m_properties.contains(key)) {
        m_properties.insert(key, value);
        return;
    }
    // As texts, which the stream puts in quotes, the fixed ones as well.
    qWarning() << QStringLiteral("PropertyMap already contains key:") << key << QStringLiteral("!");
    QVariant stored = value;
    // Looked for anew, as whoever takes the message may have changed the element.
    if (QVariant *const property = m_properties.get(key)) {
        property->swap(stored);
    } else {
        m_properties.insert(key, stored);
    }
}

void ConfigurationAndProcessDataBase::addProperties(const PropertyMap &properties)
{
    for (auto property = properties.cbegin(); property != properties.cend(); ++property) {
        addProperty(property.key(), property.value());
    }
}

void ConfigurationAndProcessDataBase::removeProperties(const QStringList &keys)
{
    for (const QString &key : keys) {
        if (m_properties.contains(key)) {
            m_properties.remove(key);
        }
    }
}

ConfigurationAndProcessDataBase::PropertyMap ConfigurationAndProcessDataBase::getProperties()
{
    return m_properties.toMap();
}

void ConfigurationAndProcessDataBase::getContentAsQJsonObject(QJsonObject &json) const
{
    if (m_properties.isEmpty()) {
        if (!FramingSilence::isKept()) {
            qWarning() << "No properties found in configuration value!";
        }
        return;
    }
    const PropertyMap properties = m_properties.toMap();
    const std::vector<QVariant> values = toFramedValues(*this, properties, m_dataTypeMap);
    const FramedShape ownShape;
    FramedShape::current()->fill(json, properties, values);
}

void ConfigurationAndProcessDataBase::collectElements(ListElements & /*elements*/,
                                                      bool /*sorted*/) const
{
    qWarning() << "Child map not empty and not of type treenode!";
}

void ConfigurationAndProcessDataBase::collectUrlsOfElements(QStringList & /*urls*/,
                                                            QString & /*prefix*/) const
{
    qWarning() << "Child map not empty and not of type treenode!";
}

bool compareElements(const BaseClassSharedPointer &left, const BaseClassSharedPointer &right)
{
    if (left.isNull() || right.isNull()) {
        qWarning() << "Key has no value!";
        return false;
    }
    const QString &key = Definitions::getKeyDataPropertyDisplayPosition();
    const QVariant leftPosition = displayPosition(*left, key);
    const QVariant rightPosition = displayPosition(*right, key);
    if (leftPosition.isValid() && rightPosition.isValid()) {
        return leftPosition.toInt() < rightPosition.toInt();
    }
    // Nodes need no position: a node stands for a folder, whose place nobody has to choose.
    if (!isTreeNode(*left) && !isTreeNode(*right)) {
        qWarning() << "Object contains no valid element" << key;
    }
    return false;
}
