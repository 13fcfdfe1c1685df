#pragma once

#include "Configuration/ConfigurationDataValue.h"
#include "Configuration/ConfigurationModificationHandler.h"
#include "support/LogCapture.h"

const char *const modifierMissing = "Cannot find property 'modified by' in root node!";
const char *const dateMissing = "Cannot find property 'last modified' in root node!";
const char *const nullRoot = "Invalid pointer to root node!";

inline ConfigurationAndProcessDataBase::BaseClassSharedPointer element(const QJsonObject &json)
{
    return QSharedPointer<ConfigurationDataValue>::create(json, nullptr);
}

/// A root that nobody stamped so far.
inline ConfigurationAndProcessDataBase::BaseClassSharedPointer completeRoot(
    const QString &modifiedBy = "")
{
    return element({{"type", "string"}, {"modifiedBy", modifiedBy}, {"lastModified", ""}});
}

inline ConfigurationAndProcessDataBase::BaseClassSharedPointer rootWithModifierOnly()
{
    return element({{"type", "string"}, {"modifiedBy", "Factory"}});
}

inline ConfigurationAndProcessDataBase::BaseClassSharedPointer rootWithDateOnly()
{
    return element({{"type", "string"}, {"lastModified", "never"}});
}

inline ConfigurationAndProcessDataBase::BaseClassSharedPointer rootWithNeither()
{
    return element({{"type", "string"}});
}

/// Notes what is asked of it, and takes no write if told so.
class RecordingElement : public ConfigurationAndProcessDataBase
{
public:
    using ConfigurationAndProcessDataBase::ConfigurationAndProcessDataBase;

    bool hasProperty(const QString &key) const override
    {
        calls.append("has " + key);
        return ConfigurationAndProcessDataBase::hasProperty(key);
    }
    QVariant getProperty(const QString &key) const override
    {
        calls.append("get " + key);
        return ConfigurationAndProcessDataBase::getProperty(key);
    }
    SetValueStatus setProperty(const QString &key, const QVariant &value) override
    {
        calls.append("set " + key);
        return refusesWrites ? SetValuePropertyPathInvalid
                             : ConfigurationAndProcessDataBase::setProperty(key, value);
    }

    bool refusesWrites = false;
    mutable QStringList calls;
};

inline QSharedPointer<RecordingElement> recordingRoot()
{
    const QJsonObject json{{"modifiedBy", ""}, {"lastModified", ""}};
    return QSharedPointer<RecordingElement>::create(json, nullptr);
}

inline QString modifiedByOf(const ConfigurationAndProcessDataBase::BaseClassSharedPointer &root)
{
    return root->getProperty("modifiedBy").toString();
}

inline QString lastModifiedOf(const ConfigurationAndProcessDataBase::BaseClassSharedPointer &root)
{
    return root->getProperty("lastModified").toString();
}

/// The items as texts "module|object|instance|date".
inline QStringList itemsOf(const ConfigurationModificationHandler &handler)
{
    QList<ModifiedInstanceItem> items;
    handler.getModifiedInstances(items);
    QStringList texts;
    for (const ModifiedInstanceItem &item : qAsConst(items)) {
        texts.append(item.moduleName + '|' + item.objectName + '|' + item.instanceName + '|'
                     + item.lastModified);
    }
    return texts;
}

/// Whether @p text names a point in time from @p begin to now.
inline bool liesBetweenNowAnd(const QDateTime &begin, const QString &text)
{
    const QDateTime end = QDateTime::currentDateTime();
    const QDateTime stamped = QDateTime::fromString(text, Qt::ISODateWithMs);
    return stamped.isValid() && begin <= stamped && stamped <= end;
}
