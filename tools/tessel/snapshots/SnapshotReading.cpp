#include "Companion/ConfigurationAndProcessDataDefinitions.h"
#include "descriptions/DescriptionFile.h"
#include "descriptions/JsonInput.h"
#include "snapshots/Snapshot.h"

#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSet>

#include <cmath>
#include <limits>

namespace {

using Definitions = ConfigurationAndProcessDataDefinitions;
using ProcessDataDefinitions::ErrorTypes;
using ProcessDataDefinitions::PROCESS_VALUE_ERROR_TYPE_VALID;

constexpr int knownVersion = 1;

/// The digits of a number; those of a long one were kept as a text.
QString digitsOf(const QJsonValue &value)
{
    const double number = value.toDouble();
    if (value.isDouble() && std::trunc(number) == number) {
        return QString::number(number, 'f', 0);
    }
    // That of a negative zero is the one of zero.
    const QString text = value.toString();
    return text == QLatin1String("-0") ? QStringLiteral("0") : text;
}

QVariant wholeFrom(const QJsonValue &value, bool isSigned)
{
    bool ok = false;
    const QString digits = digitsOf(value);
    const QVariant number = isSigned ? QVariant(digits.toLongLong(&ok))
                                     : QVariant(digits.toULongLong(&ok));
    // The toolkit wraps a minus sign around.
    return ok && (isSigned || !digits.startsWith(QLatin1Char('-'))) ? number : QVariant();
}

QVariant floatingFrom(const QJsonValue &value, bool isSingle)
{
    bool ok = value.isDouble();
    // "nan", "inf" and "-inf" stand for what JSON has no number for.
    const double number = ok ? value.toDouble() : value.toString().toDouble(&ok);
    if (!ok) {
        return {};
    }
    return isSingle ? QVariant(static_cast<float>(number)) : QVariant(number);
}

/// Invalid if it is no value of the type.
QVariant contentFrom(const QJsonValue &value, const QString &type)
{
    switch (Definitions::getBasicDataTypeMapForProcessData().value(type, QMetaType::UnknownType)) {
    case QMetaType::Bool: return value.isBool() ? QVariant(value.toBool()) : QVariant();
    case QMetaType::QString: return value.isString() ? QVariant(value.toString()) : QVariant();
    case QMetaType::Int:
    case QMetaType::LongLong: return wholeFrom(value, true);
    case QMetaType::UInt:
    case QMetaType::ULongLong: return wholeFrom(value, false);
    case QMetaType::Float: return floatingFrom(value, true);
    case QMetaType::Double: return floatingFrom(value, false);
    default: return {};
    }
}

/// Why an entry is none, or nothing.
QString takeValue(const QJsonObject &entry, Snapshot::Value &taken)
{
    const QJsonValue url = entry.value(QStringLiteral("url"));
    const QJsonValue type = entry.value(QStringLiteral("type"));
    const QJsonValue state = entry.value(QStringLiteral("state"));
    const double number = state.toDouble(-1.5);
    if (!url.isString() || !type.isString()) {
        return QStringLiteral("has no \"url\" or no \"type\"");
    }
    if (std::trunc(number) != number || std::fabs(number) > std::numeric_limits<int>::max()) {
        return QStringLiteral("has no \"state\" that is a number");
    }
    taken.url = url.toString();
    taken.type = type.toString();
    taken.unit = entry.value(QStringLiteral("unit")).toString();
    const auto errorType = static_cast<ErrorTypes>(static_cast<int>(number));
    if (errorType != PROCESS_VALUE_ERROR_TYPE_VALID) {
        taken.value = ProcessValue(errorType);
        return {};
    }
    const QVariant content = contentFrom(entry.value(QStringLiteral("value")), taken.type);
    taken.value = {content, PROCESS_VALUE_ERROR_TYPE_VALID};
    return content.isValid() ? QString()
                             : QStringLiteral("has no \"value\" of its type '%1'").arg(taken.type);
}

void requireSnapshot(const QString &path, const QJsonObject &object)
{
    const QJsonValue version = object.value(QStringLiteral("version"));
    if (object.value(QStringLiteral("format")).toString() != QLatin1String("tessel-snapshot")) {
        refusePath(ExitCode::InputOutputFile, path,
                   QStringLiteral("is no snapshot; 'tessel snapshot' writes them"));
    }
    if (version.toDouble() != knownVersion) {
        refusePath(ExitCode::InputOutputFile, path,
                   QStringLiteral("is a snapshot of another version than %1").arg(knownVersion));
    }
    if (!object.value(QStringLiteral("values")).isArray()) {
        refusePath(ExitCode::InputOutputFile, path, QStringLiteral("has no array \"values\""));
    }
}

} // namespace

Snapshot readSnapshot(const QString &path)
{
    const QFileInfo file(path);
    if (path != QLatin1String("-") && file.exists() && !file.isFile()) {
        refusePath(ExitCode::InputOutputFile, path, QStringLiteral("is no regular file"));
    }
    const QJsonObject object = jsonInput(path).object();
    requireSnapshot(path, object);
    Snapshot snapshot;
    snapshot.key = object.value(QStringLiteral("key")).toString();
    snapshot.fingerprint = object.value(QStringLiteral("fingerprint")).toString();
    snapshot.published = object.value(QStringLiteral("published")).toString();
    snapshot.time = object.value(QStringLiteral("time")).toString();
    const QJsonArray urls = object.value(QStringLiteral("urls")).toArray();
    for (const auto &url : urls) {
        snapshot.urls.append(url.toString());
    }
    QSet<QString> known;
    const QJsonArray values = object.value(QStringLiteral("values")).toArray();
    for (const auto &entry : values) {
        Snapshot::Value value;
        QString problem = takeValue(entry.toObject(), value);
        if (problem.isEmpty() && known.contains(value.url)) {
            problem = QStringLiteral("is '%1' once more").arg(value.url);
        }
        if (!problem.isEmpty()) {
            refusePath(ExitCode::InputOutputFile, path,
                       QStringLiteral("entry %1 of the values %2")
                           .arg(snapshot.values.size() + 1)
                           .arg(problem));
        }
        known.insert(value.url);
        snapshot.values.append(value);
    }
    return snapshot;
}
