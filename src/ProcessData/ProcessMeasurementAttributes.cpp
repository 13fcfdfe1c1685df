#include "ProcessData/ProcessMeasurementAttributes.h"

#include "Companion/ConfigurationAndProcessDataDefinitions.h"

#include <QDebug>

using Definitions = ConfigurationAndProcessDataDefinitions;

namespace {

QJsonValue memberOr(const QJsonObject &entry, const QString &key, const QJsonValue &fallback)
{
    const auto member = entry.constFind(key);
    return member == entry.constEnd() ? fallback : member.value();
}

} // namespace

ProcessMeasurementAttributes::ProcessMeasurementAttributes(const QVariant &attributes)
{
    setMeasurementAttributeObject(attributes);
}

ProcessMeasurementAttributes::~ProcessMeasurementAttributes() = default;

QVariant ProcessMeasurementAttributes::getMeasurementAttributeObject() const
{
    return m_measurementAttributes.toVariantList();
}

bool ProcessMeasurementAttributes::setMeasurementAttributeObject(const QVariant &attributes)
{
    m_measurementAttributes = attributes.isValid() ? attributes.toJsonArray() : QJsonArray();
    return true;
}

bool ProcessMeasurementAttributes::setIndexedMeasurementAttributes(int index,
                                                                   const QJsonObject &object)
{
    const int size = m_measurementAttributes.size();
    if (index < 0 || index > size) {
        qWarning() << "Index to big" << index << m_measurementAttributes;
        return false;
    }
    if (index == size) {
        m_measurementAttributes.append(object);
    } else {
        m_measurementAttributes.replace(index, object);
    }
    return true;
}

QJsonObject ProcessMeasurementAttributes::getIndexedMeasurementAttributes(int index) const
{
    if (index < 0 || index >= m_measurementAttributes.size()) {
        qWarning() << "Index to big" << index << m_measurementAttributes;
        return {};
    }
    return m_measurementAttributes.at(index).toObject();
}

bool ProcessMeasurementAttributes::modifyMeasurementAttributes(int index, const QString &key,
                                                               const QJsonValue &value)
{
    QJsonObject entry;
    if (index >= 0 && index < m_measurementAttributes.size()) {
        entry = m_measurementAttributes.at(index).toObject();
    }
    entry.insert(key, value);
    return setIndexedMeasurementAttributes(index, entry);
}

bool ProcessMeasurementAttributes::setUnit(int index, const QString &unit)
{
    return modifyMeasurementAttributes(index, Definitions::getKeyDataPropertyUnit(), unit);
}

bool ProcessMeasurementAttributes::setUnitText(int index, const QVariant &unitText)
{
    return modifyMeasurementAttributes(index, Definitions::getKeyDataPropertyUnitText(),
                                       QJsonObject::fromVariantMap(unitText.toMap()));
}

bool ProcessMeasurementAttributes::setViewStart(int index, double viewStart)
{
    return modifyMeasurementAttributes(index, Definitions::getKeyDataPropertyViewStart(),
                                       viewStart);
}

bool ProcessMeasurementAttributes::setViewEnd(int index, double viewEnd)
{
    return modifyMeasurementAttributes(index, Definitions::getKeyDataPropertyViewEnd(), viewEnd);
}

QString ProcessMeasurementAttributes::getUnit(int index) const
{
    return memberOr(getIndexedMeasurementAttributes(index), Definitions::getKeyDataPropertyUnit(),
                    QString())
        .toString();
}

QVariant ProcessMeasurementAttributes::getUnitText(int index) const
{
    return memberOr(getIndexedMeasurementAttributes(index),
                    Definitions::getKeyDataPropertyUnitText(), QString())
        .toVariant();
}

double ProcessMeasurementAttributes::getViewStart(int index) const
{
    return memberOr(getIndexedMeasurementAttributes(index),
                    Definitions::getKeyDataPropertyViewStart(), 0.0)
        .toDouble(0.0);
}

double ProcessMeasurementAttributes::getViewEnd(int index) const
{
    return memberOr(getIndexedMeasurementAttributes(index),
                    Definitions::getKeyDataPropertyViewEnd(), 0.0)
        .toDouble(0.0);
}
