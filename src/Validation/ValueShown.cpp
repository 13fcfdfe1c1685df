#include "Companion/NearestWord.h"
#include "Validation/ValueShown_p.h"

namespace {

constexpr int longestText = 40;

} // namespace

QString quoted(const QString &text)
{
    const QString cut = text.size() > longestText ? text.left(longestText) + QStringLiteral("...")
                                                  : text;
    return QLatin1Char('\'') + cut + QLatin1Char('\'');
}

QString shown(const CheckedFile &file, const JsonText::Value &value)
{
    switch (value.kind()) {
    case JsonText::Kind::Null: return QStringLiteral("null");
    case JsonText::Kind::Bool:
        return value.toBool() ? QStringLiteral("true") : QStringLiteral("false");
    case JsonText::Kind::Integer:
    case JsonText::Kind::Double: return QString::fromLatin1(file.written(value));
    case JsonText::Kind::Text: return quoted(value.toString());
    case JsonText::Kind::Array: return QStringLiteral("a list");
    case JsonText::Kind::Object: return QStringLiteral("an object");
    }
    return {};
}

QString hintOf(const QString &word, const QStringList &candidates)
{
    const QString nearest = nearestWord(word, candidates);
    return nearest.isEmpty() ? QString() : QStringLiteral("; did you mean '%1'?").arg(nearest);
}
