#pragma once

#include <QByteArray>
#include <QList>
#include <QString>
#include <QVariant>

/// One leaf of a description that has every storage form, and two values to exchange through it.
struct TypeCase
{
    QString url;
    QVariant first;
    QVariant second;
    /// Whether the slot can carry an error state so that a reader recognises it.
    bool carriesErrors;
};

QList<TypeCase> everyTypeCases();

/// A process description with a leaf for each of the cases.
QByteArray everyTypeDescription(const QString &memoryKey, bool doubleBuffer);
