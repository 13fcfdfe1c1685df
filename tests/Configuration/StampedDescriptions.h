#pragma once

#include "Configuration/ConfigurationAndProcessDataTreeNode.h"
#include "Configuration/ConfigurationDataAndProcessDescriptionAccess.h"
#include "Configuration/ConfigurationDataValue.h"
#include "Configuration/ConfigurationModificationHandler.h"
#include "support/WorkingDirectory.h"

#include <QDateTime>
#include <QStringList>

/// A description that can be stamped, with one leaf "v" below its root.
inline QByteArray stampable(const QByteArray &value)
{
    return R"({"lastModified":"","modifiedBy":"","type":"treenode","value":)"
           R"({"v":{"type":"string","value":")"
           + value + R"("}}})";
}

/// The file that stampable() becomes when it is stamped for the first time.
inline QByteArray stamped(const QByteArray &value, const QString &date)
{
    return R"({"lastModified":")" + date.toUtf8()
           + R"(","modifiedBy":"Device","type":"treenode","value":)"
             R"({"v":{"type":"string","value":")"
           + value + R"("}}})";
}

/// A leaf that cannot be stamped.
inline ConfigurationAndProcessDataBase::BaseClassSharedPointer plainLeaf(const QString &value)
{
    return QSharedPointer<ConfigurationDataValue>::create(
        QJsonObject{{"type", "string"}, {"value", value}}, nullptr);
}

/// A node without any child.
inline QSharedPointer<ConfigurationAndProcessDataTreeNode> emptyNode()
{
    return QSharedPointer<ConfigurationAndProcessDataTreeNode>::create(
        QJsonObject{{"type", "treenode"}}, nullptr);
}

/// What was recorded since the list was cleared, as "module|object|instance".
inline QStringList recordedInstances()
{
    QList<ModifiedInstanceItem> items;
    ConfigurationModificationHandler::getInstance().getModifiedInstances(items);
    QStringList texts;
    for (const ModifiedInstanceItem &item : qAsConst(items)) {
        texts.append(item.moduleName + '|' + item.objectName + '|' + item.instanceName);
    }
    return texts;
}

/// The date of the last instance that was recorded.
inline QString recordedDate()
{
    QList<ModifiedInstanceItem> items;
    ConfigurationModificationHandler::getInstance().getModifiedInstances(items);
    return items.isEmpty() ? QString("(nothing)") : items.last().lastModified;
}
