#pragma once

#include "Configuration/ConfigurationAndProcessDataBase.h"

#include <QDateTime>
#include <QList>
#include <QString>

/// One instance that was stamped.
struct ModifiedInstanceItem
{
    QString moduleName; ///< module that owns the instance
    QString objectName; ///< object within the module
    /// with the folders on the way to it, as in a URL
    QString instanceName;
    QString lastModified; ///< date text, as it stands in the root's property
};

/// Stamps configuration roots with who changed them last and when, and remembers for the life of
/// the process what was stamped.
///
/// Changes properties only; whoever stamps writes the root out afterwards. A root without the two
/// properties cannot be stamped: they are never added. Only the creation of the instance is
/// thread-safe.
class TESSEL_EXPORT ConfigurationModificationHandler
{
public:
    /// In which roots are handed over.
    using BaseClassSharedPointer = ConfigurationAndProcessDataBase::BaseClassSharedPointer;

    ConfigurationModificationHandler() = default;

    /// The one handler of the process. What it has recorded goes with the static objects when the
    /// process ends; it can be used even after them.
    static ConfigurationModificationHandler &getInstance();

    /// ISO 8601 with milliseconds and time zone.
    QString getModificationDateAsString(QDateTime date) const;
    /// The chain of origins; the null string if the root has none.
    QString getModifiedBy(const BaseClassSharedPointer &root) const;

    /// Replaces the chain of origins. False, with a warning, if the root has no such property.
    bool setModifiedBy(const BaseClassSharedPointer &root, const QString &modifiedBy);
    /// Replaces the date text. False, with a warning, if the root has no such property.
    bool setLastModified(const BaseClassSharedPointer &root, const QString &lastModified);
    /// Replaces the chain by @p modifiedBy and stamps the present time. Not recorded.
    bool setModifiedByAndCurrentDate(const BaseClassSharedPointer &root, const QString &modifiedBy);

    /// Stamps the present time, adds @p origin to the chain and records the instance. True only if
    /// both properties were stamped; true as well, with a warning, for a null root.
    bool touch(const BaseClassSharedPointer &root, const QString &moduleName,
               const QString &objectName, const QString &instanceName, const QString &origin);

    /// Records an instance; one that is recorded already stands there twice then.
    void appendModifiedInstance(const QString &moduleName, const QString &objectName,
                                const QString &instanceName, const QString &lastModified);
    /// Records an instance with the date that its root has.
    bool appendModifiedInstance(const BaseClassSharedPointer &root, const QString &moduleName,
                                const QString &objectName, const QString &instanceName);
    /// In the order of the stamps.
    void getModifiedInstances(QList<ModifiedInstanceItem> &modifiedInstances) const;
    /// Forgets all records; the stamps in the trees stay.
    void clearModifiedInstances();

private:
    QList<ModifiedInstanceItem> m_modifiedInstances;
};
