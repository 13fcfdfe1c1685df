#pragma once

#include <QByteArray>
#include <QString>
#include <QtGlobal>

/// How a source is; the numbers go over the wire.
enum class SourceState : quint8 { Live = 0, CreatorGone = 1, RegionReplaced = 2, Silent = 3 };

/// For a person, such as `its creator has gone`.
QString textOf(SourceState state);

/// One set as it came in, not checked. Keeps nothing: the bytes are those of the engine.
struct ReceivedSet
{
    QByteArray source;     ///< identity that the source gave itself
    quint64 publisher = 0; ///< who wrote it, by the engine
    QString host;
    quint32 attachment = 0;
    quint64 generation = 0;
    qint64 timeStamp = 0; ///< microseconds since 1970, of the clock of the source
    quint64 fingerprint = 0;
    quint8 byteOrder = 0;
    quint8 state = 0;
    const unsigned char *bytes = nullptr;
    quint32 size = 0;
};
