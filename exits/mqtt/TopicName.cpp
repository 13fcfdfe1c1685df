#include "mqtt/TopicName.h"

QString TopicName::problemOf(const QString &name)
{
    if (name.isEmpty()) {
        return QStringLiteral("is empty");
    }
    for (const QChar character : name) {
        if (character.category() == QChar::Other_Control) {
            return QStringLiteral("holds a control character, which no name in a topic may");
        }
        if (QStringLiteral("+#/").contains(character)) {
            return QStringLiteral("holds a '%1', which no name in a topic may").arg(character);
        }
    }
    return {};
}
