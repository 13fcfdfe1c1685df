#include "generation/CppNames.h"

#include "generation/CppTakenNames.h"

#include <QVector>

#include <algorithm>

namespace {

bool isPlain(uint character)
{
    return (character >= 'a' && character <= 'z') || (character >= 'A' && character <= 'Z')
           || (character >= '0' && character <= '9');
}

QString piece(uint character)
{
    constexpr uint firstBeyondAscii = 0x80;
    constexpr int digits = 4;
    if (isPlain(character)) {
        return QString(QChar(character));
    }
    return character < firstBeyondAscii
               ? QStringLiteral("_")
               : QStringLiteral("u%1").arg(character, digits, 16, QLatin1Char('0'));
}

} // namespace

QString CppNames::identifierOf(const QString &name)
{
    QString text;
    const QVector<uint> characters = name.toUcs4();
    for (const uint character : characters) {
        text += piece(character);
    }
    QString identifier = text.split(QLatin1Char('_'), Qt::SkipEmptyParts).join(QLatin1Char('_'));
    if (identifier.isEmpty()) {
        return QStringLiteral("x");
    }
    if (identifier.at(0).isDigit()) {
        identifier.prepend(QLatin1Char('n'));
    }
    return CppTakenNames::isWordOrMacro(identifier) ? identifier + QLatin1Char('_') : identifier;
}

QHash<QString, QString> CppNames::uniqueIdentifiers(const QStringList &names,
                                                    const QSet<QString> &taken)
{
    struct Wanted
    {
        QString name;
        QString identifier;
        bool isOneAlready;
    };
    QVector<Wanted> ordered;
    for (const auto &name : names) {
        const QString identifier = identifierOf(name);
        ordered.append({name, identifier, identifier == name});
    }
    // What is an identifier comes first, so that no odd neighbour changes it.
    std::sort(ordered.begin(), ordered.end(), [](const Wanted &left, const Wanted &right) {
        return left.isOneAlready != right.isOneAlready ? left.isOneAlready : left.name < right.name;
    });
    QSet<QString> used = taken;
    QHash<QString, QString> identifiers;
    QHash<QString, int> numbers; // the next one to try of each stem: those before it are taken
    for (const auto &wanted : std::as_const(ordered)) {
        const QString stem = wanted.identifier.endsWith(QLatin1Char('_'))
                                 ? wanted.identifier.chopped(1)
                                 : wanted.identifier;
        int &number = numbers[stem];
        number = std::max(number, 2);
        QString identifier = wanted.identifier;
        for (; used.contains(identifier); ++number) {
            identifier = identifierOf(QStringLiteral("%1_%2").arg(stem).arg(number));
        }
        used.insert(identifier);
        identifiers.insert(wanted.name, identifier);
    }
    return identifiers;
}

QString CppNames::namespaceOf(const QString &name)
{
    QString identifier = identifierOf(name);
    return CppTakenNames::isGlobal(identifier) ? identifier + QLatin1Char('_') : identifier;
}

bool CppNames::isNamespace(const QString &text)
{
    const QStringList pieces = text.split(QStringLiteral("::"));
    return std::all_of(pieces.cbegin(), pieces.cend(), [](const QString &name) {
        return !name.isEmpty() && namespaceOf(name) == name;
    });
}
