#include "text/WrappedText.h"

#include "text/Output.h"

#include <QStringList>

namespace {

QString withoutBlanksAtEnd(QString line)
{
    while (line.endsWith(QLatin1Char(' '))) {
        line.chop(1);
    }
    return line;
}

} // namespace

QString wrappedText(const QString &first, const QString &text)
{
    constexpr int mostCharacters = 80;
    const QString indent(first.size(), QLatin1Char(' '));
    QString lines;
    QString line = first;
    bool isEmpty = true;
    const QStringList words = printable(text).split(QLatin1Char(' '));
    for (const auto &word : words) {
        if (!isEmpty && line.size() + 1 + word.size() > mostCharacters) {
            lines += withoutBlanksAtEnd(line) + QLatin1Char('\n');
            line = indent;
            isEmpty = true;
        }
        line += isEmpty ? word : QLatin1Char(' ') + word;
        isEmpty = false;
    }
    return lines + withoutBlanksAtEnd(line) + QLatin1Char('\n');
}

QString factLine(const QString &name, const QString &text)
{
    return wrappedText(QStringLiteral("%1  ").arg(name, -12), text);
}
