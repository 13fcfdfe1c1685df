#pragma once

#include "Configuration/ConfigurationAndProcessDataBase.h"
#include "ProcessData/ProcessValueErrorTypes.h"

#include <QStringList>
#include <QVector>

#include <memory>

class ProcessDataManager;

/// Chosen leaves of one region, looked up once and then read as one consistent set into plain arrays.
///
/// Takes the leaves that ProcessDoubleHandle takes, as long as they are bound to the memory of the
/// manager. A place whose leaf was refused, with a warning, stays in the arrays and reads as 0 in
/// state NO_VALID_INPUT_VALUE, so that places and URLs go on corresponding.
///
/// Where the slots lie is taken over when the reader is made. It needs the manager, which must
/// outlive it, and no longer the tree. Any thread may read, but not two threads with one reader at
/// once.
class TESSEL_EXPORT ProcessBulkReader
{
public:
    /// A tree, or an element of it.
    using BaseClassSharedPointer = ConfigurationAndProcessDataBase::BaseClassSharedPointer;

    /// The leaves at @p urls below @p root, in that order.
    ProcessBulkReader(ProcessDataManager *manager, const BaseClassSharedPointer &root,
                      const QStringList &urls);
    /// The leaves themselves, in that order. A null one is a place that was refused.
    ProcessBulkReader(ProcessDataManager *manager,
                      const QVector<ProcessDataValueSharedPointer> &leaves);
    ~ProcessBulkReader();

    /// Places in the arrays.
    int getCount() const;
    /// Whether no leaf was refused.
    bool isComplete() const;

    /// Fills both arrays, of getCount() places each, from one consistent set. Repeats the reading as
    /// readConsistently() does, and as it stays inside a read lock of this thread. An erroneous
    /// value comes with the number that lies in the slot. False if no consistent set was to be had;
    /// what the arrays hold must not be used then.
    bool read(double *values, ProcessDataDefinitions::ErrorTypes *states);

private:
    Q_DISABLE_COPY(ProcessBulkReader)
    class Plan;

    ProcessDataManager *m_manager;
    std::unique_ptr<Plan> m_plan;
};
