#pragma once

#include "metrics/MetricsWriter.h"

#include <QStringList>

/// What the status files of mirrors tell, whose form stands in tessel-mirror(1). Whether each is there, can be
/// read and is not old, and of those that are their sources and receivers, each once.
void writeMirrors(MetricsWriter &writer, const QStringList &files);
