#pragma once

#include "ToolDescription.h"
#include "ToolProcess.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QtTest>

inline ToolResult diff(const QStringList &arguments)
{
    return runTool(QStringList(QStringLiteral("diff")) + arguments);
}

/// A description with one leaf, `n/a`, that a test gives in JSON without the braces.
inline QByteArray process(const QByteArray &leaf,
                          const QByteArray &root = R"("sizeOfSharedMemory": 40)")
{
    return R"({"type": "treenode", "keyProcessDataMemory": "tesselDiff", )" + root
           + R"(, "value": {"n": {"type": "treenode", "value": {"a": {)" + leaf + "}}}}}";
}

inline QByteArray configuration(const QByteArray &leaf,
                                const QByteArray &root = R"("modifiedBy": "me")")
{
    return R"({"type": "treenode", )" + root
           + R"(, "value": {"n": {"type": "treenode", "value": {"a": {)" + leaf + "}}}}}";
}

/// The two texts in two files of one kind.
struct Pair
{
    Pair(const QByteArray &formerText, const QByteArray &nowText, const char *kind)
        : former(folder.write(QStringLiteral("old.%1.json").arg(QLatin1String(kind)), formerText))
        , now(folder.write(QStringLiteral("new.%1.json").arg(QLatin1String(kind)), nowText))
    {
    }

    ToolDescription folder;
    QString former;
    QString now;
};

/// Each change as "VERDICT KIND URL WHAT OLD NEW".
inline QStringList changesIn(const QString &json)
{
    const auto text = [](const QJsonValue &value) {
        return QString::fromUtf8(QJsonDocument(QJsonArray{value}).toJson(QJsonDocument::Compact));
    };
    QStringList changes;
    for (const auto &entry : QJsonDocument::fromJson(json.toUtf8()).array()) {
        const QJsonObject object = entry.toObject();
        for (const auto &changed : object.value(QStringLiteral("changes")).toArray()) {
            const QJsonObject change = changed.toObject();
            changes.append(QStringList{change.value(QStringLiteral("verdict")).toString(),
                                       object.value(QStringLiteral("kind")).toString(),
                                       object.value(QStringLiteral("url")).toString(),
                                       change.value(QStringLiteral("what")).toString(),
                                       text(change.value(QStringLiteral("old"))),
                                       text(change.value(QStringLiteral("new")))}
                               .join(QLatin1Char(' ')));
        }
    }
    return changes;
}

constexpr const char *leafA = R"("type": "double", "sizeValue": 8, "offsetSharedMemory": 0)";
