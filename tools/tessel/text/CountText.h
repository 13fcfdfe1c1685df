#pragma once

#include <QString>

/// A count with the word for what is counted: "1 set", "2 sets". @p several where it is not @p one with an s.
QString countText(quint64 count, const QString &one, const QString &several = {});
