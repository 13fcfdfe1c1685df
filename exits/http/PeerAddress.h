#pragma once

#include <QByteArray>

struct MHD_Connection;

/// The address, without port, from which @p connection was made; empty if it is unknown.
QByteArray peerAddressOf(MHD_Connection *connection);
