#pragma once

#include <QByteArray>

/// The token by which somebody shows that he may write.
namespace TokenCheck {

/// What an `Authorization` header carries behind `Bearer`; empty if it carries none.
QByteArray bearerOf(const QByteArray &authorization);
/// Whether the two are the same, in a time that does not tell how far they are. Never for an empty one.
bool isSame(const QByteArray &given, const QByteArray &token);

} // namespace TokenCheck
