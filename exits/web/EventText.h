#pragma once

#include <QByteArray>

/// The text of server-sent events.
namespace EventText {

/// An event with its data, which is JSON and so without line ends of its own.
QByteArray event(const char *name, const QByteArray &data);
/// A line that says nothing but that the connection lives.
QByteArray comment();

} // namespace EventText
