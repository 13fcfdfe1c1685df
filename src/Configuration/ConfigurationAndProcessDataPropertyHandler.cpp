#include "Configuration/ConfigurationAndProcessDataPropertyHandler.h"

#include "Configuration/ConfigurationAndProcessDataTools.h"
#include "Configuration/HeldContainer_p.h"
#include "Configuration/PropertyPath_p.h"
#include "Configuration/PropertyRecord_p.h"

#include <QDebug>
#include <QHash>
#include <QList>

#include <utility>

using Base = ConfigurationAndProcessDataBase;
using Tools = ConfigurationAndProcessDataTools;

// Before the bracket stands a letter and after it a digit; "a1[2]" and "[2]" are plain keys. Never
// destroyed, as properties may be asked for after the static objects are.
const QRegularExpression
    &ConfigurationAndProcessDataPropertyHandler::sm_RegularExpressionDimension =
        *new QRegularExpression(QStringLiteral("[a-zA-Z]+\\[(?<dimensions>\\d[,\\d]*)\\]"));
const QRegularExpression
    &ConfigurationAndProcessDataPropertyHandler::sm_RegularExpressionRemoveDimension =
        *new QRegularExpression(QStringLiteral("[\\d[,\\d]*\\]"));

namespace {

/// Where one step of a walk goes: into the map entry `key`, then along `indices`, then `pieces`.
struct Step
{
    QString key;
    QStringList indices;
    QStringList pieces;
};

/// @p pieces is not empty.
Step firstStep(const QStringList &pieces)
{
    Step step;
    step.key = pieces.first();
    step.indices = ConfigurationAndProcessDataPropertyHandler::getAndRemoveDimension(step.key);
    step.pieces = pieces.mid(1);
    return step;
}

Step firstStep(const QString &path)
{
    return firstStep(path.split(QLatin1Char('/'), Qt::KeepEmptyParts, Qt::CaseSensitive));
}

/// Cuts the dimension out of @p piece, which @p parts has taken apart.
QStringList takeDimensions(QString &piece, const PropertyPath::Piece &parts)
{
    if (parts.dimensions.isEmpty()) {
        return {};
    }
    QStringList indices = parts.dimensions.toString().split(QLatin1Char(','));
    piece.truncate(static_cast<int>(parts.key.size()));
    return indices;
}

bool isSame(const QVariant &current, const QVariant &value)
{
    // An indicator of "nothing entered" equals 0 or "" as a variant, but is another value.
    return current == value
           && Tools::isNoInputValueIndicatorSet(current)
                  == Tools::isNoInputValueIndicatorSet(value);
}

void replaceValue(QVariant &current, const QVariant &value)
{
    // A number ends without anybody hearing of it.
    if (typeOf(current) <= QMetaType::Double) {
        current = value;
        return;
    }
    // What was there ends when nothing looks at this place any more: whoever hears of that may change
    // the element.
    QVariant stored = value;
    current.swap(stored);
}

Base::SetValueStatus storeValue(QVariant &current, const QVariant &value)
{
    if (isSame(current, value)) {
        return Base::SetValueUnchanged;
    }
    replaceValue(current, value);
    return Base::SetValueChanged;
}

/// Whether @p path leads through lists alone to a value that is the same. Asked before the walk, in
/// which the lists on the way are copied where somebody else holds them too. A map on the way
/// becomes a hash, also where the value stays.
template <class Properties>
bool isSameCell(const Properties &properties, const QString &path, const QVariant &value)
{
    if (path.contains(QLatin1Char('/'))) {
        return false;
    }
    const QVariant *const cell = PropertyPath::find(properties, path);
    return cell != nullptr && isSame(*cell, value);
}

/// In two steps, as the result may hold what the value lies in.
void deliver(const QVariant &value, QVariant &result)
{
    QVariant found = value;
    result = std::move(found);
}

Base::SetValueStatus storeAlong(QVariant &current, const QStringList &pieces,
                                const QStringList &indices, const QVariant &value);

/// @p indices is not empty. A container is given up by @p current while it is changed, so that it
/// has one owner and no copy of it is made.
Base::SetValueStatus storeInList(QVariant &current, const QStringList &pieces,
                                 const QStringList &indices, const QVariant &value)
{
    if (!current.canConvert(QMetaType::QVariantList)) {
        return Base::SetValuePropertyPathInvalid;
    }
    bool isNumber = false;
    const int index = indices.first().toInt(&isNumber);
    if (!isNumber) {
        qWarning() << "Can not convert Instanz to a number:" << indices.first();
        return Base::SetValuePropertyPathInvalid;
    }
    QVariantList list = current.toList();
    if (index < 0 || index >= list.size()) {
        qWarning() << "The dimension is not correct:" << index;
        return Base::SetValuePropertyPathInvalid;
    }
    current.clear();
    const Base::SetValueStatus status = storeAlong(list[index], pieces, indices.mid(1), value);
    current = list;
    return status;
}

/// @p pieces is not empty.
Base::SetValueStatus storeInMap(QVariant &current, const QStringList &pieces, const QVariant &value)
{
    const Step step = firstStep(pieces);
    if (!current.canConvert(QMetaType::QVariantMap)) {
        qWarning() << "Propterty value is no map." << step.key;
        return Base::SetValueTargetMissing;
    }
    QVariantHash map = current.toHash();
    if (!map.contains(step.key)) {
        qWarning() << "Key not found" << step.key;
        return Base::SetValueTargetMissing;
    }
    current.clear();
    const Base::SetValueStatus status = storeAlong(map[step.key], step.pieces, step.indices, value);
    current = map;
    return status;
}

Base::SetValueStatus storeAlong(QVariant &current, const QStringList &pieces,
                                const QStringList &indices, const QVariant &value)
{
    if (!indices.isEmpty()) {
        return storeInList(current, pieces, indices, value);
    }
    return pieces.isEmpty() ? storeValue(current, value) : storeInMap(current, pieces, value);
}

} // namespace

QStringList ConfigurationAndProcessDataPropertyHandler::getAndRemoveDimension(QString &piece)
{
    if (const auto parts = PropertyPath::splitPiece(piece)) {
        return takeDimensions(piece, *parts);
    }
    const QRegularExpressionMatch match = sm_RegularExpressionDimension.match(piece);
    if (!match.hasMatch()) {
        return {};
    }
    QStringList indices =
        match.captured(QStringLiteral("dimensions")).split(QLatin1Char(','), Qt::KeepEmptyParts);
    piece.remove(sm_RegularExpressionRemoveDimension);
    return indices;
}

namespace {

const QVariant *valueUnder(const Base::PropertyMap &properties, const QString &key)
{
    const auto property = properties.constFind(key);
    return property == properties.constEnd() ? nullptr : &property.value();
}

const QVariant *valueUnder(const ElementProperties &properties, const QString &key)
{
    return properties.get(key);
}

QVariant *placeUnder(Base::PropertyMap &properties, const QString &key)
{
    const auto property = properties.find(key);
    return property == properties.end() ? nullptr : &property.value();
}

QVariant *placeUnder(ElementProperties &properties, const QString &key)
{
    return properties.get(key);
}

template <class Properties>
void readAlong(const Properties &properties, const QString &path, QVariant &result)
{
    if (path.isEmpty()) {
        qWarning() << "Key is empty";
        return;
    }
    if (PropertyPath::isPlainKey(path)) {
        if (const QVariant *property = valueUnder(properties, path)) {
            deliver(*property, result);
        }
        return;
    }
    if (const QVariant *value = PropertyPath::find(properties, path)) {
        deliver(*value, result);
        return;
    }
    const Step step = firstStep(path);
    if (const QVariant *property = valueUnder(properties, step.key)) {
        ConfigurationAndProcessDataPropertyHandler::iteratePropertiesForGettingValues(
            *property, step.pieces, step.indices, result);
    }
}

template <class Properties>
Base::SetValueStatus writeAlong(Properties &properties, const QString &path, const QVariant &value)
{
    if (path.isEmpty()) {
        qWarning() << "Key is empty";
        return Base::SetValuePropertyPathInvalid;
    }
    if (PropertyPath::isPlainKey(path)) {
        if (QVariant *property = placeUnder(properties, path)) {
            return storeValue(*property, value);
        }
    }
    if (isSameCell(properties, path, value)) {
        return Base::SetValueUnchanged;
    }
    const Step step = firstStep(path);
    QVariant *const property = placeUnder(properties, step.key);
    if (property == nullptr) {
        qWarning() << "Key not found" << step.key;
        return Base::SetValuePropertyPathInvalid;
    }
    return ConfigurationAndProcessDataPropertyHandler::iteratePropertiesForSettingValues(
        *property, step.pieces, step.indices, value);
}

} // namespace

void ConfigurationAndProcessDataPropertyHandler::iteratePropertyMapForGettingValue(
    const PropertyMap &properties, const QString &path, QVariant &result)
{
    readAlong(properties, path, result);
}

ConfigurationAndProcessDataPropertyHandler::SetValueStatus
ConfigurationAndProcessDataPropertyHandler::iteratePropertyMapForSettingValue(
    PropertyMap &properties, const QString &path, const QVariant &value)
{
    return writeAlong(properties, path, value);
}

void PropertyPath::readValue(const ElementProperties &properties, const QString &path,
                             QVariant &result)
{
    readAlong(properties, path, result);
}

Base::SetValueStatus PropertyPath::writeValue(ElementProperties &properties, const QString &path,
                                              const QVariant &value)
{
    const QVariant *property = nullptr;
    if (PropertyRecord::answers(properties, path, property) && property != nullptr) {
        if (isSame(*property, value)) {
            return Base::SetValueUnchanged;
        }
        QVariant *const place = PropertyRecord::placeToWrite(properties, property);
        if (place != nullptr) {
            replaceValue(*place, value);
        } else {
            // A copy, as it may lie among the values that move.
            const QVariant stored = value;
            PropertyRecord::ownAll(properties);
            replaceValue(*properties.get(path), stored);
        }
        return Base::SetValueChanged;
    }
    // A value of its own: the new one may lie among those that move when one of them is written.
    return writeAlong(properties, path, QVariant(value));
}

void ConfigurationAndProcessDataPropertyHandler::iteratePropertiesForGettingValues(
    const QVariant &current, const QStringList &pieces, const QStringList &indices,
    QVariant &result)
{
    if (!indices.isEmpty()) {
        if (!current.canConvert(QMetaType::QVariantList)) {
            return;
        }
        bool isNumber = false;
        const int index = indices.first().toInt(&isNumber);
        if (!isNumber) {
            qWarning() << "Can not convert Instanz to a number:" << indices.first();
            return;
        }
        const QVariantList list = current.toList();
        if (index < 0 || index >= list.size()) {
            qWarning() << "Incorrect number of dimensions:" << index;
            return;
        }
        iteratePropertiesForGettingValues(list.at(index), pieces, indices.mid(1), result);
        return;
    }
    if (pieces.isEmpty()) {
        result = current;
        return;
    }
    const Step step = firstStep(pieces);
    if (!current.canConvert(QMetaType::QVariantMap)) {
        qWarning() << "No map for key:" << step.key;
        return;
    }
    const QVariantHash map = current.toHash();
    const auto entry = map.constFind(step.key);
    if (entry != map.constEnd()) {
        iteratePropertiesForGettingValues(entry.value(), step.pieces, step.indices, result);
    }
}

ConfigurationAndProcessDataPropertyHandler::SetValueStatus
ConfigurationAndProcessDataPropertyHandler::iteratePropertiesForSettingValues(
    QVariant &current, const QStringList &pieces, const QStringList &indices, const QVariant &value)
{
    // A value of its own: the new one may be the old one, or a part of it.
    return storeAlong(current, pieces, indices, QVariant(value));
}
