#pragma once

#include <QString>

/// The eight bytes at @p offset of the segment @p key, as a number in the machine's byte order; 0 where
/// there is no such segment or it is shorter.
///
/// Read without a mapping: the first look into a page of a segment whose memory was never taken would
/// take it, and end the process where there is none left.
quint64 segmentWord(const QString &key, int offset);
