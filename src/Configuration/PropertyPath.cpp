#include "Configuration/HeldContainer_p.h"
#include "Configuration/LookupKey_p.h"
#include "Configuration/PropertyPath_p.h"
#include "Configuration/PropertyRecord_p.h"

#include <algorithm>

namespace {

// The patterns know ASCII letters and digits only.
bool isLetter(QChar character)
{
    return (character >= QLatin1Char('a') && character <= QLatin1Char('z'))
           || (character >= QLatin1Char('A') && character <= QLatin1Char('Z'));
}

bool isDigit(QChar character)
{
    return character >= QLatin1Char('0') && character <= QLatin1Char('9');
}

bool isDigitOrComma(QChar character)
{
    return isDigit(character) || character == QLatin1Char(',');
}

/// The first of these characters, which end a key; @p end if there is none. With a loop of its own, as the
/// usual search is a call that takes longer than a short key.
const QChar *bracketOrSlash(const QChar *character, const QChar *end)
{
    while (character != end && *character != QLatin1Char('/') && *character != QLatin1Char('[')) {
        ++character;
    }
    return character;
}

/// Whether a pattern reads these characters as they stand: it refuses texts that are no UTF-16, and
/// a further bracket would be cut out as well.
bool isOrdinaryKey(QStringView key)
{
    return std::none_of(key.begin(), key.end(), [](QChar character) {
        return character.isSurrogate() || character == QLatin1Char(']');
    });
}

const QVariant *findInHash(const QVariantHash &hash, QStringView key)
{
    const auto entry = hash.constFind(LookupKey(key).text());
    return entry == hash.constEnd() ? nullptr : &entry.value();
}

const QVariant *findInHash(const ElementProperties &properties, QStringView key)
{
    return PropertyRecord::valueUnder(properties, key);
}

/// Of several entries under one key the last one counts, which is the one that a conversion to a
/// hash would put in front.
const QVariant *findInMap(const QVariantMap &map, const QString &key)
{
    auto entry = map.upperBound(key);
    if (entry == map.constBegin()) {
        return nullptr;
    }
    --entry;
    return entry.key() == key ? &entry.value() : nullptr;
}

const QVariant *findEntry(const QVariant &value, QStringView key)
{
    switch (typeOf(value)) {
    case QMetaType::QVariantMap:
        return findInMap(heldBy<QVariantMap>(value), LookupKey(key).text());
    case QMetaType::QVariantHash: return findInHash(heldBy<QVariantHash>(value), key);
    default: return nullptr;
    }
}

/// The number at the beginning of @p dimensions, which loses it together with its comma. -1 if
/// there is none, or one that is too big for a list in memory.
int takeIndex(QStringView &dimensions)
{
    constexpr qsizetype maximumDigits = 9;
    qsizetype digits = 0;
    int index = 0;
    while (digits < dimensions.size() && dimensions[digits] != QLatin1Char(',')) {
        if (digits == maximumDigits) {
            return -1;
        }
        index = index * 10 + (dimensions[digits].unicode() - u'0');
        ++digits;
    }
    const bool isLast = digits == dimensions.size();
    // A comma at the very end promises an index that is not there.
    if (digits == 0 || (!isLast && digits + 1 == dimensions.size())) {
        return -1;
    }
    dimensions = dimensions.mid(isLast ? digits : digits + 1);
    return index;
}

const QVariant *findCell(const QVariant *value, QStringView dimensions)
{
    while (value != nullptr && !dimensions.isEmpty()) {
        const int index = takeIndex(dimensions);
        if (index < 0 || typeOf(*value) != QMetaType::QVariantList) {
            return nullptr;
        }
        const auto &list = heldBy<QVariantList>(*value);
        value = index < list.size() ? &list.at(index) : nullptr;
    }
    return value;
}

} // namespace

bool PropertyPath::isPlainKey(QStringView path)
{
    return bracketOrSlash(path.begin(), path.end()) == path.end();
}

std::optional<PropertyPath::Piece> PropertyPath::splitPiece(QStringView piece)
{
    const auto *const bracket = std::find(piece.begin(), piece.end(), QLatin1Char('['));
    if (bracket == piece.end()) {
        return Piece{piece, {}};
    }
    const qsizetype keySize = bracket - piece.begin();
    const qsizetype dimensionsSize = piece.size() - keySize - 2;
    if (keySize == 0 || dimensionsSize < 1 || piece.back() != QLatin1Char(']')) {
        return std::nullopt;
    }
    const Piece parts{piece.left(keySize), piece.mid(keySize + 1, dimensionsSize)};
    const bool isUsual = isLetter(parts.key.back()) && isDigit(parts.dimensions.front())
                         && std::all_of(parts.dimensions.begin(), parts.dimensions.end(),
                                        isDigitOrComma)
                         && isOrdinaryKey(parts.key);
    return isUsual ? std::make_optional(parts) : std::nullopt;
}

namespace {

template <class Properties>
const QVariant *findAlong(const Properties &properties, QStringView path)
{
    const QVariant *value = nullptr;
    bool isTopLevel = true;
    while (true) {
        const auto *slash = bracketOrSlash(path.begin(), path.end());
        PropertyPath::Piece piece{path.left(slash - path.begin()), {}};
        if (slash != path.end() && *slash == QLatin1Char('[')) {
            slash = std::find(slash, path.end(), QLatin1Char('/'));
            const auto parts = PropertyPath::splitPiece(path.left(slash - path.begin()));
            if (!parts) {
                return nullptr;
            }
            piece = *parts;
        }
        value = isTopLevel ? findInHash(properties, piece.key) : findEntry(*value, piece.key);
        value = findCell(value, piece.dimensions);
        if (value == nullptr || slash == path.end()) {
            return value;
        }
        path = path.mid(slash - path.begin() + 1);
        isTopLevel = false;
    }
}

} // namespace

const QVariant *PropertyPath::find(const ConfigurationAndProcessDataBase::PropertyMap &properties,
                                   QStringView path)
{
    return findAlong(properties, path);
}

const QVariant *PropertyPath::find(const ElementProperties &properties, QStringView path)
{
    return findAlong(properties, path);
}
