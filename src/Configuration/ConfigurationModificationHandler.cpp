#include "Configuration/ConfigurationModificationHandler.h"

#include "Companion/ConfigurationAndProcessDataDefinitions.h"
#include "Companion/IsoDateConverter.h"
#include "Companion/Lasting_p.h"

#include <QDebug>

using Definitions = ConfigurationAndProcessDataDefinitions;

// Each operation that writes holds a pointer of its own: what hears of the change may put another
// root into the variable of the caller, and the one that is being stamped would die in its write.

namespace {

const char *const nullRootMessage = "Invalid pointer to root node!";
const char *const modifierMissingMessage = "Cannot find property 'modified by' in root node!";

/// Adds the three names of an instance to a message.
QDebug withNames(QDebug message, const QString &moduleName, const QString &objectName,
                 const QString &instanceName)
{
    return message << "ModuleName:" << moduleName << "ObjectName" << objectName << "InstanceName"
                   << instanceName;
}

/// Lets the list of a handler go with the static objects. The handler itself stays, for roots that
/// are stamped after them.
class EndOfList
{
public:
    explicit EndOfList(ConfigurationModificationHandler &handler) : m_handler(handler) { }
    ~EndOfList() { m_handler.clearModifiedInstances(); }

private:
    Q_DISABLE_COPY(EndOfList)

    ConfigurationModificationHandler &m_handler;
};

} // namespace

ConfigurationModificationHandler &ConfigurationModificationHandler::getInstance()
{
    static Lasting<ConfigurationModificationHandler> handler;
    static const EndOfList end(handler.get());
    return handler.get();
}

// NOLINTNEXTLINE(performance-unnecessary-value-param): the signature is public and stays
QString ConfigurationModificationHandler::getModificationDateAsString(QDateTime date) const
{
    return IsoDateConverter::convertDateTimeToIsoDateWithMsAndTimezone(date);
}

QString ConfigurationModificationHandler::getModifiedBy(const BaseClassSharedPointer &root) const
{
    if (root.isNull()) {
        qWarning() << nullRootMessage;
        return {};
    }
    if (!root->hasProperty(Definitions::getKeyDataPropertyModifiedBy())) {
        qWarning() << modifierMissingMessage;
        return {};
    }
    const QVariant modifiedBy = root->getProperty(Definitions::getKeyDataPropertyModifiedBy());
    if (!modifiedBy.canConvert(QMetaType::QString)) {
        qWarning() << "Unable to convert property 'modifiedBy' to string" << modifiedBy << "!";
        return {};
    }
    return modifiedBy.toString();
}

bool ConfigurationModificationHandler::setModifiedBy(const BaseClassSharedPointer &root,
                                                     const QString &modifiedBy)
{
    if (root.isNull()) {
        qWarning() << nullRootMessage;
        return false;
    }
    if (!root->hasProperty(Definitions::getKeyDataPropertyModifiedBy())) {
        qWarning() << modifierMissingMessage;
        return false;
    }
    const BaseClassSharedPointer kept = root;
    // What counts is that the root can be stamped; a text that stands there already is as good.
    kept->setProperty(Definitions::getKeyDataPropertyModifiedBy(), modifiedBy);
    return true;
}

bool ConfigurationModificationHandler::setLastModified(const BaseClassSharedPointer &root,
                                                       const QString &lastModified)
{
    if (root.isNull()) {
        qWarning() << nullRootMessage;
        return false;
    }
    if (!root->hasProperty(Definitions::getKeyDataPropertyLastModified())) {
        qWarning() << "Cannot find property 'last modified' in root node!";
        return false;
    }
    const BaseClassSharedPointer kept = root;
    kept->setProperty(Definitions::getKeyDataPropertyLastModified(), lastModified);
    return true;
}

bool ConfigurationModificationHandler::setModifiedByAndCurrentDate(
    const BaseClassSharedPointer &root, const QString &modifiedBy)
{
    if (root.isNull()) {
        qWarning() << nullRootMessage;
        return false;
    }
    const BaseClassSharedPointer kept = root;
    // The date is stamped also where the modifier has no place.
    const bool modifierStamped = setModifiedBy(kept, modifiedBy);
    const bool dateStamped = setLastModified(
        kept, getModificationDateAsString(QDateTime::currentDateTime()));
    return modifierStamped && dateStamped;
}

bool ConfigurationModificationHandler::touch(const BaseClassSharedPointer &root,
                                             const QString &moduleName, const QString &objectName,
                                             const QString &instanceName, const QString &origin)
{
    if (root.isNull()) {
        withNames(qWarning() << nullRootMessage, moduleName, objectName, instanceName);
        return true;
    }
    const BaseClassSharedPointer kept = root;
    const QString date = getModificationDateAsString(QDateTime::currentDateTime());
    const bool dateStamped = setLastModified(kept, date);
    bool modifierStamped = false;
    if (!origin.isEmpty()) {
        const QString chain = getModifiedBy(kept);
        modifierStamped = setModifiedBy(
            kept, chain.isEmpty() ? origin : chain + QLatin1Char('(') + origin + QLatin1Char(')'));
    }
    if (dateStamped || modifierStamped) {
        appendModifiedInstance(moduleName, objectName, instanceName, date);
    }
    return dateStamped && modifierStamped;
}

void ConfigurationModificationHandler::appendModifiedInstance(const QString &moduleName,
                                                              const QString &objectName,
                                                              const QString &instanceName,
                                                              const QString &lastModified)
{
    m_modifiedInstances.append({moduleName, objectName, instanceName, lastModified});
}

bool ConfigurationModificationHandler::appendModifiedInstance(const BaseClassSharedPointer &root,
                                                              const QString &moduleName,
                                                              const QString &objectName,
                                                              const QString &instanceName)
{
    if (root.isNull()) {
        qWarning() << nullRootMessage;
        return false;
    }
    if (!root->hasProperty(Definitions::getKeyDataPropertyLastModified())) {
        withNames(qWarning() << "Cannot find property 'lastModified' in root node!", moduleName,
                  objectName, instanceName);
        return false;
    }
    const QVariant lastModified = root->getProperty(Definitions::getKeyDataPropertyLastModified());
    if (!lastModified.canConvert(QMetaType::QString)) {
        withNames(qWarning() << "Unable to convert property lastModified to string" << lastModified
                             << "!",
                  moduleName, objectName, instanceName);
        return false;
    }
    appendModifiedInstance(moduleName, objectName, instanceName, lastModified.toString());
    return true;
}

void ConfigurationModificationHandler::getModifiedInstances(
    QList<ModifiedInstanceItem> &modifiedInstances) const
{
    modifiedInstances = m_modifiedInstances;
}

void ConfigurationModificationHandler::clearModifiedInstances()
{
    QList<ModifiedInstanceItem>().swap(m_modifiedInstances);
}
