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

/// One of its accessors.
struct CppAccessor
{
    Leaf leaf;
    QString name;      ///< the way to it from `Values`, such as `pump.speed`
    QString className; ///< in the namespace `leaf`; empty if the leaf was left out
};

struct CppHeader
{
    QString text;
    QVector<CppAccessor>
        accessors; ///< in the order of their nodes, and below in that of the leaves
};

/// A header with a typed accessor for each leaf: the same for the same description.
CppHeader cppHeader(const CppDescription &description);
