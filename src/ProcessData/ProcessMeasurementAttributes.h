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
    explicit ProcessMeasurementAttributes(const QVariant &attributes);
    virtual ~ProcessMeasurementAttributes();

    QVariant getMeasurementAttributeObject() const;
    /// An invalid variant leaves an empty list. Always true.
    bool setMeasurementAttributeObject(const QVariant &attributes);

    bool setIndexedMeasurementAttributes(int index, const QJsonObject &object);
    QJsonObject getIndexedMeasurementAttributes(int index) const;
    /// Sets one member of an entry and keeps the others.
    bool modifyMeasurementAttributes(int index, const QString &key, const QJsonValue &value);

    bool setUnit(int index, const QString &unit);
    bool setUnitText(int index, const QVariant &unitText);
    bool setViewStart(int index, double viewStart);
    bool setViewEnd(int index, double viewEnd);
    // A missing member reads as the empty text or 0.0.
    QString getUnit(int index) const;
    QVariant getUnitText(int index) const;
    double getViewStart(int index) const;
    double getViewEnd(int index) const;

private:
    QJsonArray m_measurementAttributes;
};
