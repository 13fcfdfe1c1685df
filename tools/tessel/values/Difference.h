#pragma once

#include <QString>
#include <QStringList>
#include <QVariant>
#include <QVector>

/// What a new description means to programs that were written for the old one, the mildest first.
enum class Verdict {
    Compatible, ///< they go on, also those that still use the old description
    Attach,     ///< they go on when they attach with the new description
    Breaking    ///< they have to be changed
};

/// One thing that differs, such as the type of a leaf.
struct Change
{
    /// A key of the format, or "added", "removed" and the like.
    QString what;
    /// Invalid where there is none.
    QVariant former;
    QVariant now;
    Verdict verdict;
    /// Why it is not compatible; empty if it is.
    QString reason;
};

/// All that differs at one URL.
struct Difference
{
    enum class Kind { Process, Configuration };

    Kind kind;
    /// Empty: the root, and with it the region.
    QString url;
    QVector<Change> changes;

    /// The worst of its changes.
    Verdict verdict() const;
};

/// Whether two values would be written in the same way; numbers to their last bit.
bool isSameValue(const QVariant &left, const QVariant &right);
/// Whether the property under a key says where a leaf lies, or how many bytes it has.
bool isSlotKey(const QString &key);
/// Whether two values of the property under a key are the same to the library, however they are written: an offset
/// of "0" is 0, and so is none.
bool isReadAlike(const QString &key, const QVariant &left, const QVariant &right);

/// Adds a change of a property that programs do not count on.
void addCompatible(Difference &difference, const QString &what, const QVariant &former,
                   const QVariant &now);
/// Adds another unit: one where there was none says nothing new.
void addUnit(Difference &difference, const QString &what, const QVariant &former,
             const QVariant &now);
/// What keeps an index of the former list from meaning the same in the one of now; empty if it does: entries
/// may come behind the others.
QString selectionProblem(const QStringList &former, const QStringList &now);
/// Adds what becomes of a selection list.
void addSelectionList(Difference &difference, const QVariant &former, const QVariant &now);
