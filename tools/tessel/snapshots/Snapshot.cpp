#include "snapshots/Snapshot.h"

#include "text/JsonText.h"
#include "values/StateName.h"
#include "values/ValueText.h"

namespace {

QString textOrNull(const QString &text)
{
    return text.isEmpty() ? QStringLiteral("null") : jsonString(text);
}

QString listOf(const QStringList &texts)
{
    QStringList quoted;
    for (const auto &text : texts) {
        quoted.append(jsonString(text));
    }
    return QLatin1Char('[') + quoted.join(QStringLiteral(", ")) + QLatin1Char(']');
}

QString jsonOf(const Snapshot::Value &value)
{
    const ProcessDataDefinitions::ErrorTypes state = value.value.getErrorType();
    return jsonObject({
        {QStringLiteral("url"), jsonString(value.url)},
        {QStringLiteral("type"), jsonString(value.type)},
        {QStringLiteral("value"), valueJson(value.value)},
        {QStringLiteral("state"), QString::number(static_cast<int>(state))},
        {QStringLiteral("stateName"), jsonString(stateName(state))},
        {QStringLiteral("unit"), jsonString(value.unit)},
    });
}

} // namespace

QString snapshotText(const Snapshot &snapshot)
{
    QStringList values;
    for (const auto &value : snapshot.values) {
        values.append(jsonOf(value));
    }
    const QVector<QPair<QString, QString>> members{
        {QStringLiteral("format"), QStringLiteral("\"tessel-snapshot\"")},
        {QStringLiteral("version"), QStringLiteral("1")},
        {QStringLiteral("key"), jsonString(snapshot.key)},
        {QStringLiteral("fingerprint"), jsonString(snapshot.fingerprint)},
        {QStringLiteral("generation"),
         snapshot.generation ? QString::number(*snapshot.generation) : QStringLiteral("null")},
        {QStringLiteral("published"), textOrNull(snapshot.published)},
        {QStringLiteral("time"), jsonString(snapshot.time)},
        {QStringLiteral("urls"), listOf(snapshot.urls)},
        {QStringLiteral("values"), jsonArray(values, QStringLiteral("    "))},
    };
    QStringList lines;
    for (const auto &member : members) {
        lines.append(QStringLiteral("  ") + jsonString(member.first) + QStringLiteral(": ")
                     + member.second);
    }
    return QStringLiteral("{\n") + lines.join(QStringLiteral(",\n")) + QStringLiteral("\n}\n");
}
