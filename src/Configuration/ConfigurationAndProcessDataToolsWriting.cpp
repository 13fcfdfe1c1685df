// Checked writes by URL.

#include "Companion/ConfigurationAndProcessDataDefinitions.h"
#include "Configuration/ConfigurationAndProcessDataTools.h"
#include "Configuration/ConfigurationDataValue.h"
#include "Configuration/WriteStatus_p.h"

#include <QDebug>
#include <QRegExp>

using Base = ConfigurationAndProcessDataBase;
using Definitions = ConfigurationAndProcessDataDefinitions;

namespace {

void reportMismatch(const QString &url, const QVariant &value)
{
    if (value.isValid() && value.canConvert(QMetaType::QString)) {
        qWarning() << "Regular expression mismatch in configuration" << url << "with data"
                   << value.toString();
        return;
    }
    qWarning() << "Regular expression mismatch in configuration" << url;
}

bool isRootGiven(const Base::BaseClassSharedPointer &root)
{
    if (root.isNull()) {
        qWarning() << "Pointer to configuration root invalid!";
        return false;
    }
    return true;
}

/// Writes @p value with @p write if the element's pattern lets it pass. A missing leaf passes the
/// check and is the target that is missing.
template <class Write>
Base::SetValueStatus writeChecked(const QString &url, const Base::BaseClassSharedPointer &root,
                                  const QVariant &value, const Write &write)
{
    const QSharedPointer<ConfigurationDataValue> leaf = root->getLeafConfigurationData(url);
    if (!ConfigurationAndProcessDataTools::checkRegularExpression(leaf, value)) {
        reportMismatch(url, value);
        return Base::SetValueRegularExpressionMismatch;
    }
    return leaf.isNull() ? Base::SetValueTargetMissing : write(*leaf);
}

} // namespace

Base::SetValueStatus ConfigurationAndProcessDataTools::setConfigValueWithStatus(
    const QString &url, const BaseClassSharedPointer &root, const QVariant &value)
{
    if (!isRootGiven(root)) {
        return Base::SetValueTargetMissing;
    }
    // What hears of the change may put another root into the variable of the caller.
    const BaseClassSharedPointer kept = root;
    const Base::SetValueStatus cellStatus = setConfigValueWithArrayIndexUrl(url, kept, value);
    if (cellStatus != Base::SetValueTargetMissing) {
        return cellStatus;
    }
    return writeChecked(url, kept, value,
                        [&value](ConfigurationDataValue &leaf) { return leaf.setValue(value); });
}

bool ConfigurationAndProcessDataTools::setConfigValue(const QString &url,
                                                      const BaseClassSharedPointer &root,
                                                      const QVariant &value)
{
    return isSuccess(setConfigValueWithStatus(url, root, value));
}

Base::SetValueStatus ConfigurationAndProcessDataTools::setConfigValueNoSignalEmitWithStatus(
    const QString &url, const BaseClassSharedPointer &root, const QVariant &value)
{
    if (!isRootGiven(root)) {
        return Base::SetValueTargetMissing;
    }
    return writeChecked(url, root, value, [&value](ConfigurationDataValue &leaf) {
        return leaf.setValueNoSignalEmit(value);
    });
}

bool ConfigurationAndProcessDataTools::setConfigValueNoSignalEmit(
    const QString &url, const BaseClassSharedPointer &root, const QVariant &value)
{
    return isSuccess(setConfigValueNoSignalEmitWithStatus(url, root, value));
}

Base::SetValueStatus ConfigurationAndProcessDataTools::setPropertyWithStatus(
    const QString &url, const QString &property, const BaseClassSharedPointer &root,
    const QVariant &value)
{
    if (!isRootGiven(root)) {
        return Base::SetValueTargetMissing;
    }
    const BaseClassSharedPointer kept = root;
    const QSharedPointer<ConfigurationDataValue> leaf = kept->getLeafConfigurationData(url);
    return leaf.isNull() ? Base::SetValueTargetMissing : leaf->setProperty(property, value);
}

bool ConfigurationAndProcessDataTools::setProperty(const QString &url, const QString &property,
                                                   const BaseClassSharedPointer &root,
                                                   const QVariant &value)
{
    return isSuccess(setPropertyWithStatus(url, property, root, value));
}

bool ConfigurationAndProcessDataTools::checkRegularExpression(const BaseClassSharedPointer &element,
                                                              const QVariant &value)
{
    if (element.isNull()) {
        return true;
    }
    const QVariant type = element->getProperty(Definitions::getKeyDataPropertyType());
    if (!type.isValid() || !type.canConvert(QMetaType::QString)
        || type.toString() != Definitions::getKeyDataTypeString()) {
        return true;
    }
    const QString &patternKey = Definitions::getKeyDataPropertyRegularExpression();
    if (!element->hasProperty(patternKey)) {
        return true;
    }
    const QVariant pattern = element->getProperty(patternKey);
    if (!pattern.isValid() || !pattern.canConvert(QMetaType::QString)
        || pattern.toString().isEmpty()) {
        return true;
    }
    return QRegExp(pattern.toString(), Qt::CaseSensitive, QRegExp::RegExp)
        .exactMatch(value.toString());
}
