#pragma once

#include "ProcessData/Linux/SlotAccess_p.h"

#include <QDebug>

/// The leaf if it can be read as a plain number, else null; the log says why, and calls it @p name.
inline ProcessDataValueSharedPointer numberLeaf(const ProcessDataValueSharedPointer &leaf,
                                                const QString &name)
{
    if (leaf.isNull()) {
        qWarning() << "No process value at" << name;
        return {};
    }
    if (!SlotAccess::isBound(*leaf)) {
        qWarning() << "Process value is not bound to a memory:" << name;
        return {};
    }
    if (SlotAccess::slot(*leaf).form == SlotForm::None) {
        qWarning() << "Process value is no number:" << name;
        return {};
    }
    return leaf;
}

inline ProcessDataValueSharedPointer findNumberLeaf(
    const ConfigurationAndProcessDataBase::BaseClassSharedPointer &root, const QString &url)
{
    return numberLeaf(
        root.isNull() ? ProcessDataValueSharedPointer() : root->getLeafProcessDataValue(url), url);
}
