#include "generation/CppNames.h"

#include <QRegularExpression>

#include <algorithm>

namespace {

/// Words of C++ up to C++20, those that Qt and the C library define as macros, and what compilers do.
const QSet<QString> &takenWords()
{
    static const QStringList list =
        QStringLiteral(
            "alignas alignof and and_eq asm atomic_cancel atomic_commit atomic_noexcept auto "
            "bitand bitor "
            "bool break case catch char char8_t char16_t char32_t class compl concept const "
            "consteval "
            "constexpr constinit const_cast continue co_await co_return co_yield decltype default "
            "delete "
            "do double dynamic_cast else enum explicit export extern false float for friend goto "
            "if inline "
            "int long mutable namespace new noexcept not not_eq nullptr operator or or_eq private "
            "protected "
            "public reflexpr register reinterpret_cast requires return short signed sizeof static "
            "static_assert static_cast struct switch synchronized template this thread_local throw "
            "true try "
            "typedef typeid typename union unsigned using virtual void volatile wchar_t while xor "
            "xor_eq "
            "emit foreach forever signals slots "
            "assert errno stderr stdin stdout major minor makedev linux unix i386 std "
            "NULL EOF TRUE FALSE BUFSIZ RAND_MAX SIGINT SIGTERM EDOM ERANGE INFINITY NAN HUGE_VAL")
            .split(QLatin1Char(' '));
    static const QSet<QString> words(list.cbegin(), list.cend());
    return words;
}

bool isTaken(const QString &word)
{
    // All classes and macros of Qt.
    static const QRegularExpression ofQt(QStringLiteral("^Q[A-Z_]"));
    return takenWords().contains(word) || ofQt.match(word).hasMatch();
}

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
    for (const uint character : name.toUcs4()) {
        text += piece(character);
    }
    QString identifier = text.split(QLatin1Char('_'), Qt::SkipEmptyParts).join(QLatin1Char('_'));
    if (identifier.isEmpty()) {
        return QStringLiteral("x");
    }
    if (identifier.at(0).isDigit()) {
        identifier.prepend(QLatin1Char('n'));
    }
    return isTaken(identifier) ? identifier + QLatin1Char('_') : identifier;
}

QHash<QString, QString> CppNames::uniqueIdentifiers(const QStringList &names,
                                                    const QSet<QString> &taken)
{
    QStringList ordered = names;
    // What is an identifier comes first, so that no odd neighbour changes it.
    std::sort(ordered.begin(), ordered.end(), [](const QString &left, const QString &right) {
        const bool isLeftOne = identifierOf(left) == left;
        const bool isRightOne = identifierOf(right) == right;
        return isLeftOne != isRightOne ? isLeftOne : left < right;
    });
    QSet<QString> used = taken;
    QHash<QString, QString> identifiers;
    for (const auto &name : std::as_const(ordered)) {
        const QString wanted = identifierOf(name);
        const QString stem = wanted.endsWith(QLatin1Char('_')) ? wanted.chopped(1) : wanted;
        QString identifier = wanted;
        for (int number = 2; used.contains(identifier); ++number) {
            identifier = QStringLiteral("%1_%2").arg(stem).arg(number);
        }
        used.insert(identifier);
        identifiers.insert(name, identifier);
    }
    return identifiers;
}

bool CppNames::isNamespace(const QString &text)
{
    const QStringList pieces = text.split(QStringLiteral("::"));
    return std::all_of(pieces.cbegin(), pieces.cend(), [](const QString &name) {
        return !name.isEmpty() && identifierOf(name) == name;
    });
}
