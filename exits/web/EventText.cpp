#include "web/EventText.h"

#include <QList>

QByteArray EventText::event(const char *name, const QByteArray &data)
{
    QByteArray text("event: ");
    text += name;
    text += '\n';
    // A line end inside would begin another field.
    const QList<QByteArray> lines = data.split('\n');
    for (const auto &line : lines) {
        text += "data: " + line + '\n';
    }
    return text + '\n';
}

QByteArray EventText::comment()
{
    return ": alive\n\n";
}
