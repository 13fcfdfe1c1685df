#include "RandomConfiguration.h"

#include <QJsonDocument>

#include <limits>

namespace {

const QStringList &childKeys()
{
    // "n#0,0" looks like a cell, but there is never an array "n".
    static const QStringList keys{"a", "b", "c d", "\u00fc", "x#y", "n#0,0", "table", "deep"};
    return keys;
}

/// As it comes out of a text: only there does a number get its final type.
QVariant fromText(const QJsonValue &value)
{
    const QByteArray text = QJsonDocument(QJsonArray{value}).toJson(QJsonDocument::Compact);
    return QJsonDocument::fromJson(text).array().at(0).toVariant();
}

bool isMap(const QVariant &value)
{
    return value.userType() == QMetaType::QVariantMap
           || value.userType() == QMetaType::QVariantHash;
}

} // namespace

QJsonObject RandomConfiguration::description()
{
    QJsonObject root = node(2);
    QJsonObject childs = root.value("value").toObject();
    childs.insert("table", array());
    root.insert("value", childs);
    return root;
}

QJsonObject RandomConfiguration::node(int depth)
{
    QJsonObject childs;
    for (int i = below(5); i > 0; --i) {
        childs.insert(pick(childKeys()), depth > 0 && once(3) ? node(depth - 1) : leaf());
    }
    return {{"type", "treenode"}, {"value", childs}, {"info", json(1)}};
}

QJsonObject RandomConfiguration::leaf()
{
    static const QStringList types{"int8",   "int16",   "int32",    "int64",  "uint8",
                                   "uint16", "uint32",  "uint64",   "float",  "double",
                                   "string", "string",  "string",   "string", "string",
                                   "bit",    "boolean", "selector", "record", "record"};
    static const QStringList patterns{"[a-z]+", "\\d", "", "(", ".*", "1?"};
    if (once(4)) {
        return array();
    }
    const QString type = pick(types);
    QJsonObject json{{"type", type},
                     {"value", QJsonValue::fromVariant(heldValue(type))},
                     {"info", this->json(2)}};
    if (type.endsWith("64")) {
        json.insert("value", heldValue(type).toString());
    }
    if (!once(3)) {
        json.insert("regularExpression", pick(patterns));
    }
    if (once(3)) {
        json.insert("readOnly", once(2));
    }
    return json;
}

QJsonObject RandomConfiguration::array()
{
    QJsonArray columns;
    for (int i = below(4); i > 0; --i) {
        columns.append(QJsonValue::fromVariant(columnDescription()));
    }
    QJsonObject json{{"type", "array"}, {"value", QJsonArray::fromVariantList(cells())}};
    if (!once(6)) {
        json.insert("arrayInformation", QJsonArray{QJsonArray(), columns});
    }
    if (once(2)) {
        json.insert("arrayHasDynamicRows", !once(3));
        json.insert("arrayMaxRows", below(5));
    }
    return json;
}

QVariantList RandomConfiguration::cells()
{
    const int columns = below(4);
    const bool isRagged = once(6);
    QVariantList rows;
    for (int i = below(4); i > 0; --i) {
        QVariantList row;
        for (int j = isRagged ? below(4) : columns; j > 0; --j) {
            row.append(once(12) ? value(1) : value(0));
        }
        rows.append(once(20) ? value(0) : QVariant(row));
    }
    if (once(8)) {
        return rows.value(0).toList();
    }
    return once(12) ? QVariantList{QVariant(rows)} : rows;
}

QVariant RandomConfiguration::columnDescription()
{
    if (once(10)) {
        return text();
    }
    QVariantMap map;
    if (!once(4)) {
        map.insert("type", once(3) ? "selector" : "int32");
    }
    if (!once(4)) {
        map.insert("unitType", once(4) ? QString() : text());
    }
    if (!once(4)) {
        map.insert("value", value(0));
    }
    return map;
}

QJsonValue RandomConfiguration::json(int depth)
{
    switch (below(depth > 0 ? 8 : 5)) {
    case 0: return QJsonValue();
    case 1: return once(2);
    case 2: return below(1000) / 8.0;
    case 3: return static_cast<int>(m_random.generate());
    case 4: return text();
    case 5: return QJsonArray{json(depth - 1), json(depth - 1)};
    default: return QJsonObject{{"a", json(depth - 1)}, {"b", json(depth - 1)}};
    }
}

QVariant RandomConfiguration::heldValue(const QString &typeName)
{
    const quint64 bits = m_random.generate64();
    const auto low = static_cast<quint32>(bits);
    if (typeName == "int64") {
        return static_cast<qint64>(bits);
    }
    if (typeName == "uint64") {
        return bits;
    }
    if (typeName.startsWith("int") || typeName == "selector") {
        return static_cast<int>(low);
    }
    if (typeName.startsWith("uint")) {
        return low;
    }
    if (typeName == "float") {
        return static_cast<float>(static_cast<int>(low)) / 3.0F;
    }
    if (typeName == "double") {
        return static_cast<double>(static_cast<qint64>(bits)) / 3.0;
    }
    if (typeName == "bit" || typeName == "boolean") {
        return once(2);
    }
    return typeName == "string" ? QVariant(text()) : fromText(json(3));
}

QVariant RandomConfiguration::value(int depth)
{
    switch (below(depth > 0 ? 13 : 10)) {
    case 0: return below(4);
    case 1: return below(8) / 2.0;
    case 2: return QString::number(below(4));
    case 3: return once(2);
    case 4: return QVariant(QVariant::Int);
    case 5: return QVariant(QVariant::String);
    case 6: return QVariant();
    case 7: return text();
    case 8: return QByteArray("bytes");
    case 9: return static_cast<qint64>(m_random.generate64());
    case 10: return QVariantMap{{"a", value(depth - 1)}};
    case 11: return QVariantHash{{"b", value(depth - 1)}};
    default: return QVariantList{value(depth - 1), value(depth - 1)};
    }
}

QString RandomConfiguration::leafUrl(const Root &root)
{
    QString url;
    Root current = root;
    while (!current.isNull() && current->getNumberOfChilds() > 0) {
        QStringList keys = current->getChildMap().keys();
        keys.sort(); // The order of a hash differs from run to run.
        const QString key = pick(keys);
        url += '/' + key;
        current = current->getChildMap().value(key);
    }
    if (current.isNull()) {
        return {};
    }
    const bool isLeaf = current->getProperty("type").toString() != QLatin1String("treenode");
    return isLeaf ? url : QString();
}

QString RandomConfiguration::url(const Root &root)
{
    QString url = leafUrl(root);
    switch (below(16)) {
    case 0: url = text(); break;
    case 1: url += '/' + text(); break;
    case 2: url.truncate(url.lastIndexOf('/')); break;
    case 3: url.replace('/', "//"); break;
    case 4: url += "/"; break;
    default: break;
    }
    if (once(3)) {
        static const QStringList far{"4294967295", "4294967296", "-1", "00", ""};
        url += '#' + (once(12) ? pick(far) : QString::number(below(4))) + ','
               + (once(12) ? pick(far) : QString::number(below(4)));
    }
    return url;
}

QString RandomConfiguration::propertyPath(const Root &element)
{
    QVariant current = element.isNull() ? QVariantHash() : QVariantHash(element->getProperties());
    QString path;
    while (isMap(current) && (path.isEmpty() || !once(4))) {
        QStringList keys = current.toHash().keys();
        keys.sort();
        const QString key = keys.isEmpty() || once(8) ? text() : pick(keys);
        path += (path.isEmpty() ? QString() : QStringLiteral("/")) + key;
        current = current.toHash().value(key);
        QStringList indices;
        while (current.userType() == QMetaType::QVariantList && !once(4)) {
            const QVariantList list = current.toList();
            const int index = below(list.size() + 1);
            indices.append(QString::number(index));
            current = list.value(index);
        }
        if (!indices.isEmpty()) {
            path += '[' + indices.join(',') + ']';
        }
    }
    return once(10) ? path + pick(QStringList{"/", "[0]", "[-1]", "[0,,1]", "[99999999999]", "/z"})
                    : path;
}

QString RandomConfiguration::text()
{
    static const QString letters = QString::fromUtf8("abc019 /.[],#\\\n\x01\xC3\xA4\xE4\xB8\xAD");
    // Not the null text: a description makes no difference between the two.
    QString result = QStringLiteral("");
    for (int i = below(5); i > 0; --i) {
        result.append(letters.at(below(letters.size())));
    }
    return result;
}
