#pragma once

#include "checks/MachineFacts.h"

/// What systemd-logind is told by its files, with the order of precedence that it has.
namespace SessionSettings {

/// `RemoveIPC`: of all files that set it the last one counts. None if one of them cannot be read.
std::optional<RemovedIpc> readRemovedIpc(const QString &root);
/// `SYS_UID_MAX` of /etc/login.defs, or what it is without.
uid_t readLastSystemUser(const QString &root);

} // namespace SessionSettings
