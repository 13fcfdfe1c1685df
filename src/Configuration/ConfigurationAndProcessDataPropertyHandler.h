#pragma once

#include "Configuration/ConfigurationAndProcessDataBase.h"

#include <QRegularExpression>
#include <QString>
#include <QStringList>
#include <QVariant>

/// Reads and writes inside nested properties by a path such as `points[1]/x`.
///
/// Pieces are separated by "/" and empty ones count. Each piece is a key, with an index list in
/// brackets where a list is to be entered. Reentrant on separate maps.
class TESSEL_EXPORT ConfigurationAndProcessDataPropertyHandler
{
public:
    /// Property key to value.
    using PropertyMap = ConfigurationAndProcessDataBase::PropertyMap;
    /// What became of a write.
    using SetValueStatus = ConfigurationAndProcessDataBase::SetValueStatus;

    ConfigurationAndProcessDataPropertyHandler() = delete;

    /// Cuts the index list out of @p piece and returns its indices as text; empty if it has none.
    static QStringList getAndRemoveDimension(QString &piece);

    /// Sets @p result only if @p path leads to a value.
    static void iteratePropertyMapForGettingValue(const PropertyMap &properties,
                                                  const QString &path, QVariant &result);
    /// Writes what @p path leads to. Never creates a key.
    static SetValueStatus iteratePropertyMapForSettingValue(PropertyMap &properties,
                                                            const QString &path,
                                                            const QVariant &value);

    /// One step of the walk: follows @p indices first, then @p pieces.
    static void iteratePropertiesForGettingValues(const QVariant &current,
                                                  const QStringList &pieces,
                                                  const QStringList &indices, QVariant &result);
    /// The same for a write: @p current is replaced by its changed copy.
    static SetValueStatus iteratePropertiesForSettingValues(QVariant &current,
                                                            const QStringList &pieces,
                                                            const QStringList &indices,
                                                            const QVariant &value);

private:
    static const QRegularExpression &sm_RegularExpressionDimension;
    static const QRegularExpression &sm_RegularExpressionRemoveDimension;
};
