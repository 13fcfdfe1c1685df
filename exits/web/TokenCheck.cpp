#include "web/TokenCheck.h"

#include <QCryptographicHash>

QByteArray TokenCheck::bearerOf(const QByteArray &authorization)
{
    const QByteArray scheme("bearer ");
    return authorization.left(scheme.size()).toLower() == scheme
               ? authorization.mid(scheme.size()).trimmed()
               : QByteArray();
}

bool TokenCheck::isSame(const QByteArray &given, const QByteArray &token)
{
    // Digests have one length whatever that of the texts is, and each of their bytes is looked at.
    const QByteArray left = QCryptographicHash::hash(given, QCryptographicHash::Sha256);
    const QByteArray right = QCryptographicHash::hash(token, QCryptographicHash::Sha256);
    unsigned int difference = given.isEmpty() || token.isEmpty() ? 1 : 0;
    for (int i = 0; i < left.size(); ++i) {
        difference |= static_cast<unsigned char>(left[i]) ^ static_cast<unsigned char>(right[i]);
    }
    return difference == 0;
}
