#pragma once

#include "Configuration/ConfigurationAndProcessDataBase.h"
#include "ProcessData/ProcessValueErrorTypes.h"

/// One leaf, looked up once and then read as a plain number with its state.
///
/// Takes every leaf that holds a number or a boolean, which reads as 0 or 1; 64-bit integers are
/// rounded as a double has it. A text, or a leaf that is not bound, is refused when the handle is
/// made, with a warning, and such a handle reads and writes nothing.
///
/// A handle keeps its leaf alive, but not the memory behind it: as the leaf it must not be used
/// after the manager (or handler) to which the leaf is bound is gone. If the leaf is bound anew the
/// handle follows. Handles are copied freely; one leaf, be it through handles or by itself, must not
/// be used by two threads at once.
class TESSEL_EXPORT ProcessDoubleHandle
{
public:
    /// A tree, or an element of it.
    using BaseClassSharedPointer = ConfigurationAndProcessDataBase::BaseClassSharedPointer;

    /// A handle of no leaf.
    ProcessDoubleHandle();
    /// A leaf that was looked up before; a null one is refused.
    explicit ProcessDoubleHandle(const ProcessDataValueSharedPointer &leaf);
    /// The leaf at @p url below @p root.
    ProcessDoubleHandle(const BaseClassSharedPointer &root, const QString &url);
    /// Copied, not moved: without its leaf a handle would look at one that is gone.
    ProcessDoubleHandle(const ProcessDoubleHandle &) = default;
    /// A copy of the other handle, on the same leaf.
    ProcessDoubleHandle &operator=(const ProcessDoubleHandle &) = default;
    ~ProcessDoubleHandle() = default;

    /// Whether there is a leaf to read: the handle was made of one and the leaf was not refused.
    bool isValid() const { return !m_leaf.isNull(); }
    /// Null in a handle that is not valid.
    const ProcessDataValueSharedPointer &getLeaf() const { return m_leaf; }

    /// Reads number and state as they were published together. Inside a read lock of this thread it
    /// reads the buffer of that lock, and the unlock tells whether it was reliable; elsewhere it
    /// repeats the read itself, as ProcessDataValue::getValue() does. An erroneous value comes with
    /// the number that lies in the slot. False, with both untouched, if there was nothing to read.
    TESSEL_OFTEN bool read(double &value, ProcessDataDefinitions::ErrorTypes &state) const;
    /// The same inside a read lock that the caller holds.
    TESSEL_OFTEN bool readNoLock(double &value, ProcessDataDefinitions::ErrorTypes &state) const;

    /// Writes the number, or an error state alone, as ProcessDataValue::setValue() does: converted
    /// to the type of the leaf, refused where the leaf is read-only, and seen by the readers of a
    /// double buffer after the next swap.
    bool write(double value, ProcessDataDefinitions::ErrorTypes state =
                                 ProcessDataDefinitions::PROCESS_VALUE_ERROR_TYPE_VALID) const;
    /// The same inside a write lock that the caller holds.
    bool writeNoLock(double value,
                     ProcessDataDefinitions::ErrorTypes state =
                         ProcessDataDefinitions::PROCESS_VALUE_ERROR_TYPE_VALID) const;

private:
    /// Where a double with its state right behind it lies in the two buffers of a double buffer,
    /// looked up for one binding of the leaf. Of any other leaf, a binding that never is.
    struct Place
    {
        const quint32 *currentBinding;
        quint32 binding;
        const void *management;
        const unsigned char *values[2];
    };

    void findPlace();

    ProcessDataValueSharedPointer m_leaf;
    Place m_place{};
};
