#include "Companion/ConfigurationAndProcessDataDefinitions.h"
#include "Configuration/ConfigurationAndProcessDataTools.h"
#include "Validation/ValuePattern_p.h"

#include <QJsonObject>
#include <QRegExp>

using Definitions = ConfigurationAndProcessDataDefinitions;

ValuePattern::ValuePattern(const QString &pattern) : m_text(pattern)
{
    const QRegExp compiled(pattern, Qt::CaseSensitive, QRegExp::RegExp);
    if (!compiled.isValid()) {
        m_error = compiled.errorString();
    }
    const QJsonObject described{
        {Definitions::getKeyDataPropertyType(), Definitions::getKeyDataTypeString()},
        {Definitions::getKeyDataPropertyRegularExpression(), pattern}};
    m_element = QSharedPointer<ConfigurationDataValue>::create(described, nullptr);
}

bool ValuePattern::matches(const QString &value) const
{
    return !m_element || ConfigurationAndProcessDataTools::checkRegularExpression(m_element, value);
}
