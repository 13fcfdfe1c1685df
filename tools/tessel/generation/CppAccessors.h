#pragma once

#include "values/LeafSlot.h"

#include <QString>
#include <QVector>

/// What a header with accessors is made of.
struct CppDescription
{
    QString fileName; ///< as it stands in the header
    QString nameSpace;
    quint64 fingerprint = 0; ///< of the layout of the whole description
    QVector<Leaf> leaves;    ///< those that get accessors
};

/// The text of a header with a typed accessor for each leaf: the same for the same description.
QString cppAccessors(const CppDescription &description);
