#pragma once

#include "Companion/TesselExport.h"

#include <QJsonArray>
#include <QJsonObject>
#include <QJsonValue>
#include <QString>
#include <QVariant>

/// Edits a list of measurement attributes: for each index a unit, its text and the range in which
/// the measurement is viewed, in that unit.
///
/// Holds a copy and has no link to tree or memory. An index one past the end opens a new entry; a
/// larger one, or a negative one, is refused with a warning.
class TESSEL_EXPORT ProcessMeasurementAttributes
{
public:
    /// A copy of the list in @p attributes; empty if that is no list.
    explicit ProcessMeasurementAttributes(const QVariant &attributes);
    virtual ~ProcessMeasurementAttributes();

    /// The whole list, for storing it in a property.
    QVariant getMeasurementAttributeObject() const;
    /// An invalid variant leaves an empty list. Always true.
    bool setMeasurementAttributeObject(const QVariant &attributes);

    /// Replaces an entry, or opens a new one behind the last.
    bool setIndexedMeasurementAttributes(int index, const QJsonObject &object);
    /// A whole entry; empty, with a warning, where there is none.
    QJsonObject getIndexedMeasurementAttributes(int index) const;
    /// Sets one member of an entry and keeps the others.
    bool modifyMeasurementAttributes(int index, const QString &key, const QJsonValue &value);

    /// Text such as `°C`.
    bool setUnit(int index, const QString &unit);
    /// The unit in words: text, or a map by language.
    bool setUnitText(int index, const QVariant &unitText);
    /// Begin of the range, in the entry's unit.
    bool setViewStart(int index, double viewStart);
    /// End of the range, in the entry's unit.
    bool setViewEnd(int index, double viewEnd);
    // A missing member reads as the empty text or 0.0.
    /// Empty where nothing is set.
    QString getUnit(int index) const;
    /// Invalid or empty where nothing is set.
    QVariant getUnitText(int index) const;
    /// 0.0 where nothing is set.
    double getViewStart(int index) const;
    /// 0.0 where nothing is set.
    double getViewEnd(int index) const;

private:
    QJsonArray m_measurementAttributes;
};
