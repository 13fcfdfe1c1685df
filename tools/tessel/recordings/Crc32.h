#pragma once

#include <QtGlobal>

#include <cstddef>

/// The checksum of ZIP, PNG and Ethernet: CRC-32 with the polynomial 0xEDB88320. @p former is that of the bytes
/// before, so that a text can be taken in pieces; 0 of none.
quint32 crc32(const void *bytes, std::size_t size, quint32 former = 0);
