#pragma once

#include "Configuration/ConfigurationAndProcessDataBase.h"

#include <QStringView>

#include <optional>

// The usual forms of property paths, taken apart without the regular expressions that define them.
// Whatever has another form, and whatever deserves a message, is left to the general walk.
namespace PropertyPath {

/// True for a path that is one key without any dimension.
bool isPlainKey(QStringView path);

/// A piece as text, with the contents of its brackets if it has any.
struct Piece
{
    QStringView key;
    /// Digits and commas, beginning with a digit; empty for a piece without dimension.
    QStringView dimensions;
};

/// Takes one piece of a path apart. Nothing if its brackets stand in any other form than once, at
/// the end, after a letter.
std::optional<Piece> splitPiece(QStringView piece);

/// The value that @p path leads to; null if it leads nowhere or in an unusual way.
const QVariant *find(const ConfigurationAndProcessDataBase::PropertyMap &properties,
                     QStringView path);
const QVariant *find(const ElementProperties &properties, QStringView path);

// What ConfigurationAndProcessDataPropertyHandler does with a hash, for the properties of an element.
void readValue(const ElementProperties &properties, const QString &path, QVariant &result);
ConfigurationAndProcessDataBase::SetValueStatus writeValue(ElementProperties &properties,
                                                           const QString &path,
                                                           const QVariant &value);

} // namespace PropertyPath
