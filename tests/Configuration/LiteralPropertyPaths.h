#pragma once

#include "Configuration/ConfigurationAndProcessDataPropertyHandler.h"
#include "Configuration/ConfigurationAndProcessDataTools.h"

#include <QRegularExpression>
#include <QtDebug>

/// Property paths step by step, as plainly as they can be put: with the patterns, with lists of
/// pieces, and with a copy of every container on the way. What the library does in a shorter way is
/// compared with this.
namespace LiteralPropertyPaths {

using Base = ConfigurationAndProcessDataBase;
using Status = Base::SetValueStatus;

inline QStringList getAndRemoveDimension(QString &piece)
{
    static const QRegularExpression dimension("[a-zA-Z]+\\[(?<dimensions>\\d[,\\d]*)\\]");
    static const QRegularExpression removed("[\\d[,\\d]*\\]");
    const QRegularExpressionMatch match = dimension.match(piece);
    if (!match.hasMatch()) {
        return {};
    }
    const QStringList indices = match.captured("dimensions").split(',', Qt::KeepEmptyParts);
    piece.remove(removed);
    return indices;
}

inline void get(const QVariant &current, const QStringList &pieces, const QStringList &indices,
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
        get(list.at(index), pieces, indices.mid(1), result);
        return;
    }
    if (pieces.isEmpty()) {
        result = current;
        return;
    }
    QString key = pieces.first();
    const QStringList keyIndices = getAndRemoveDimension(key);
    if (!current.canConvert(QMetaType::QVariantMap)) {
        qWarning() << "No map for key:" << key;
        return;
    }
    const QVariantHash map = current.toHash();
    if (map.contains(key)) {
        get(map.value(key), pieces.mid(1), keyIndices, result);
    }
}

inline void get(const Base::PropertyMap &properties, const QString &path, QVariant &result)
{
    if (path.isEmpty()) {
        qWarning() << "Key is empty";
        return;
    }
    const QStringList pieces = path.split('/', Qt::KeepEmptyParts);
    QString key = pieces.first();
    const QStringList indices = getAndRemoveDimension(key);
    if (properties.contains(key)) {
        get(properties.value(key), pieces.mid(1), indices, result);
    }
}

inline Status set(QVariant &current, const QStringList &pieces, const QStringList &indices,
                  const QVariant &value)
{
    if (!indices.isEmpty()) {
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
        const Status status = set(list[index], pieces, indices.mid(1), value);
        current = list;
        return status;
    }
    if (pieces.isEmpty()) {
        using Tools = ConfigurationAndProcessDataTools;
        if (current == value
            && Tools::isNoInputValueIndicatorSet(current)
                   == Tools::isNoInputValueIndicatorSet(value)) {
            return Base::SetValueUnchanged;
        }
        current = value;
        return Base::SetValueChanged;
    }
    QString key = pieces.first();
    const QStringList keyIndices = getAndRemoveDimension(key);
    if (!current.canConvert(QMetaType::QVariantMap)) {
        qWarning() << "Propterty value is no map." << key;
        return Base::SetValueTargetMissing;
    }
    QVariantHash map = current.toHash();
    if (!map.contains(key)) {
        qWarning() << "Key not found" << key;
        return Base::SetValueTargetMissing;
    }
    const Status status = set(map[key], pieces.mid(1), keyIndices, value);
    current = map;
    return status;
}

inline Status set(Base::PropertyMap &properties, const QString &path, const QVariant &value)
{
    if (path.isEmpty()) {
        qWarning() << "Key is empty";
        return Base::SetValuePropertyPathInvalid;
    }
    const QStringList pieces = path.split('/', Qt::KeepEmptyParts);
    QString key = pieces.first();
    const QStringList indices = getAndRemoveDimension(key);
    if (!properties.contains(key)) {
        qWarning() << "Key not found" << key;
        return Base::SetValuePropertyPathInvalid;
    }
    return set(properties[key], pieces.mid(1), indices, value);
}

} // namespace LiteralPropertyPaths
