#include "web/ConfigurationJson.h"

#include "Companion/ConfigurationAndProcessDataDefinitions.h"
#include "Configuration/ConfigurationDataValue.h"
#include "region/ParsedFiles.h"
#include "web/JsonText.h"

namespace {

using Definitions = ConfigurationAndProcessDataDefinitions;
using Node = ConfigurationAndProcessDataBase::BaseClassSharedPointer;

/// Of the file that a value stands in.
struct Stamp
{
    QString modifiedBy;
    QString modifiedAt;
};

QByteArray valueJson(const QVariant &value)
{
    QVector<QByteArray> items;
    if (value.userType() == QMetaType::QVariantList) {
        const QVariantList list = value.toList();
        for (const QVariant &item : list) {
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
    collect(parsedFiles(path, FileKind::Configuration), {}, {}, objects);
    return JsonText::object({{"values", JsonText::array(objects)}}) + '\n';
}
