#include "text/JsonText.h"

#include <QJsonArray>
#include <QJsonDocument>

QString jsonString(const QString &text)
{
    // A text alone is no document for the toolkit, but a list of one text is.
    const QByteArray list = QJsonDocument(QJsonArray{text}).toJson(QJsonDocument::Compact);
    return QString::fromUtf8(list.mid(1, list.size() - 2));
}

QString jsonBool(bool value)
{
    return value ? QStringLiteral("true") : QStringLiteral("false");
}

QString jsonObject(const QVector<QPair<QString, QString>> &members)
{
    QStringList texts;
    for (const auto &member : members) {
        texts.append(jsonString(member.first) + QStringLiteral(": ") + member.second);
    }
    return QLatin1Char('{') + texts.join(QStringLiteral(", ")) + QLatin1Char('}');
}

QString jsonArray(const QStringList &values, const QString &indent)
{
    if (values.isEmpty()) {
        return QStringLiteral("[]");
    }
    const QString between = QStringLiteral(",\n") + indent;
    const QString closing = QLatin1Char('\n') + indent.mid(2);
    return QStringLiteral("[\n") + indent + values.join(between) + closing + QLatin1Char(']');
}
