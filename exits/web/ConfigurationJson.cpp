#include "web/ConfigurationJson.h"

#include "Companion/ConfigurationAndProcessDataDefinitions.h"
#include "Configuration/ConfigurationAndProcessDataParser.h"
#include "Configuration/ConfigurationDataAndProcessDescriptionAccess.h"
#include "Configuration/ConfigurationDataValue.h"
#include "service/Refusal.h"
#include "service/ServiceLog.h"
#include "web/JsonText.h"

#include <QFileInfo>

namespace {

using Definitions = ConfigurationAndProcessDataDefinitions;
using Node = ConfigurationAndProcessDataBase::BaseClassSharedPointer;

/// Of the file that a value stands in.
struct Stamp
{
    QString modifiedBy;
    QString modifiedAt;
};

Node parse(const QString &path)
{
    const QFileInfo entry(path);
    if (!entry.exists()) {
        throw Refusal{ExitCode::NotFound, QStringLiteral("%1: no such configuration").arg(path)};
    }
    if (!entry.isReadable()) {
        throw Refusal{ExitCode::NoAccess,
                      QStringLiteral("%1: no permission to read it; give the user of this program "
                                     "a group that may")
                          .arg(path)};
    }
    const LibraryReasons reasons;
    Node root;
    if (!entry.isDir()) {
        root = ConfigurationAndProcessDataParser().parseFromFile(path);
    } else if (!ConfigurationDataAndProcessDescriptionAccess::parseConfigDir(root, entry)) {
        root.reset();
    }
    if (!root) {
        throw Refusal{ExitCode::InputOutputFile,
                      QStringLiteral("%1: cannot be parsed: %2; 'tessel validate' shows where")
                          .arg(path, reasons.text())};
    }
    return root;
}

QByteArray valueJson(const QVariant &value)
{
    QVector<QByteArray> items;
    if (value.userType() == QMetaType::QVariantList) {
        for (const QVariant &item : value.toList()) {
            items.append(valueJson(item));
        }
        return JsonText::array(items);
    }
    if (value.userType() == QMetaType::QVariantMap) {
        const QVariantMap map = value.toMap();
        for (auto member = map.cbegin(); member != map.cend(); ++member) {
            items.append(JsonText::text(member.key()) + ": " + valueJson(member.value()));
        }
        const QByteArray list = JsonText::array(items);
        return '{' + list.mid(1, list.size() - 2) + '}';
    }
    // The empty text is no missing value.
    return value.isNull() && value.userType() != QMetaType::QString
               ? "null"
               : JsonText::numberForBrowser(value);
}

QByteArray textOrNull(const QString &text)
{
    return text.isEmpty() ? "null" : JsonText::text(text);
}

QByteArray leafJson(const QString &url, const ConfigurationDataValue &leaf, const Stamp &stamp)
{
    const QString type = leaf.getProperty(Definitions::getKeyDataPropertyType()).toString();
    const QVariant value = leaf.getValue();
    JsonText::Members members{
        {"url", JsonText::text(url)},
        {"type", JsonText::text(type)},
        {"unit",
         JsonText::text(leaf.getProperty(Definitions::getKeyDataPropertyUnit()).toString())},
        {"value", valueJson(value)},
        {"modifiedBy", textOrNull(stamp.modifiedBy)},
        {"modifiedAt", textOrNull(stamp.modifiedAt)}};
    const QStringList entries = leaf.getProperty(QStringLiteral("selectionList")).toStringList();
    if (!entries.isEmpty()) {
        const int index = value.isNull() ? -1 : value.toInt();
        members.append({"selection", textOrNull(entries.value(index))});
    }
    return JsonText::object(members);
}

void collect(const Node &node, const QString &url, Stamp stamp, QVector<QByteArray> &objects)
{
    if (!node) {
        return;
    }
    if (node->hasProperty(Definitions::getKeyDataPropertyModifiedBy())) {
        stamp = {node->getProperty(Definitions::getKeyDataPropertyModifiedBy()).toString(),
                 node->getProperty(Definitions::getKeyDataPropertyLastModified()).toString()};
    }
    if (const auto leaf = qSharedPointerDynamicCast<ConfigurationDataValue>(node)) {
        objects.append(leafJson(url, *leaf, stamp));
        return;
    }
    const auto &children = node->getChildMap();
    QStringList keys = children.keys();
    keys.sort();
    for (const auto &key : keys) {
        collect(children[key], url.isEmpty() ? key : url + QLatin1Char('/') + key, stamp, objects);
    }
}

} // namespace

QByteArray configurationAsJson(const QString &path)
{
    QVector<QByteArray> objects;
    collect(parse(path), {}, {}, objects);
    return JsonText::object({{"values", JsonText::array(objects)}}) + '\n';
}
