#pragma once

#include <QByteArray>

/// The description of the tree that the access target works on: leaves of every type, properties
/// with lists and maps to any depth, tables of both shapes, a pattern.
QByteArray accessDescription();
