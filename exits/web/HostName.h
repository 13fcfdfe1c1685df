#pragma once

#include <QByteArray>

/// The name or address of an authority as a `Host` header or a URL has it, such as `localhost:9300` or
/// `[::1]`: in small letters, without brackets and port. Empty for what is none.
QByteArray hostNameOf(const QByteArray &authority);
