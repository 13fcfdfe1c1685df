#pragma once

#include <QByteArray>

#include <optional>

/// The seconds since the start of the machine, from /proc/uptime.
std::optional<double> parseUptime(const QByteArray &text);
