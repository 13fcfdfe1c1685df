#pragma once

#include "Companion/BufferHandlerInterface.h"
#include "Configuration/ConfigurationAndProcessDataBase.h"
#include "ProcessData/ProcessValue.h"

enum class SlotForm : quint8;
struct NumberSlot;

/// A leaf of a process description: its value lives in a slot of the shared buffer.
///
/// Unbound after construction; setBufferHandlerInterface() ties it to a buffer and checks its slot.
/// The handler is not owned and must outlive every use. Any thread may use an element, but not two
/// threads one element at once.
class TESSEL_EXPORT ProcessDataValue : public ConfigurationAndProcessDataBase
{
    Q_OBJECT

public:
    /// How a value lies in its slot.
    enum StorageKind {
        StorageBoolean = 0, ///< A whole byte holds a boolean.
        StorageBit = 1,     ///< One or more bits of a byte.
        Storage16Bit = 2,   ///< An integer in two bytes.
        Storage8Bit = 3,    ///< An integer in one byte.
        StorageNative = 4   ///< The width follows from the data type.
    };

    /// An unbound leaf with the properties of @p json, which say where its slot is.
    ProcessDataValue(const QJsonObject &json, QObject *parent);
    ~ProcessDataValue() override;

    /// Binds the element to a buffer. With @p writeReadOnlyAllowed a read-only element can be
    /// written here. A null handler changes nothing.
    void setBufferHandlerInterface(BufferHandlerInterface *handler, bool writeReadOnlyAllowed);
    /// Whether slot, data type and sizes fit together and into the bound buffer; the log says what
    /// does not. An element that failed this at binding refuses reads and writes.
    bool isObjectValid() const;
    /// Bytes that a value of the type name takes; 0 if it has no fixed size.
    int getDataTypeSize(const QString &dataType) const;

    /// Reads the published value. A read that fails leaves @p value as it was. Unless
    /// @p keepValueOnError, an erroneous value comes without content.
    TESSEL_OFTEN void getValue(ProcessValue &value, bool keepValueOnError = false) const;
    /// The same inside a read lock that the caller holds.
    TESSEL_OFTEN void getValueNoLock(ProcessValue &value, bool keepValueOnError = false) const;
    /// Writes the value, or its error state alone. Readers of a double buffer see it after the next
    /// swap. False if it was refused.
    bool setValue(const ProcessValue &value);
    /// The same inside a write lock that the caller holds.
    TESSEL_OFTEN bool setValueNoLock(const ProcessValue &value);

private:
    friend class SlotAccess; // for the handles and readers of the library that know this class
    friend struct DescribedElement;
    Q_DISABLE_COPY(ProcessDataValue)

    Q_DECL_HIDDEN explicit ProcessDataValue(const DescribedElement &described);

    /// Tag for the slots that share a byte with others.
    struct BitType
    {
    };

    void readSlotProperties();
    void chooseStorageKind();

    bool isPointerValid() const;
    bool isWritable() const { return !m_readOnly || m_writeReadOnlyAllowed; }
    /// Bytes of the value that an access to the slot may touch at most.
    quint32 getAccessSize() const;
    /// Points at the slot in @p buffer. False, with a warning, if the first @p accessSize bytes of
    /// the value or the metadata lie outside the buffer.
    bool selectSlot(BufferHandlerInterface::BufferPointer buffer, quint64 accessSize) const;

    /// The slot if it holds a number or boolean.
    Q_DECL_HIDDEN NumberSlot getNumberSlot() const;
    /// Decides at binding whether the short ways below may be gone.
    Q_DECL_HIDDEN void chooseDirectForm();
    // Short ways to a slot of a double buffer, with the same outcome as the general ones.
    template <SlotForm form>
    Q_DECL_HIDDEN void getNumber(ProcessValue &value, bool keepValueOnError) const;
    template <SlotForm form>
    Q_DECL_HIDDEN void getNumberInPieces(ProcessValue &value, bool keepValueOnError) const;
    template <SlotForm form>
    Q_DECL_HIDDEN void getNumberNoLock(const unsigned char *buffer, ProcessValue &value,
                                       bool keepValueOnError) const;
    Q_DECL_HIDDEN void getAnyNumber(ProcessValue &value, bool keepValueOnError) const;
    Q_DECL_HIDDEN void getAnyNumberNoLock(ProcessValue &value, bool keepValueOnError) const;
    Q_DECL_HIDDEN void getAgain(ProcessValue &value, bool keepValueOnError) const;
    /// False if the general way has to be gone.
    Q_DECL_HIDDEN bool writeDirectly(BufferHandlerInterface::BufferPointer buffer,
                                     const ProcessValue &value) const;
    Q_DECL_HIDDEN BufferHandlerInterface::BufferPointer getWriteBuffer() const;
    Q_DECL_HIDDEN NumberSlot directSlot(SlotForm form) const;
    template <class Reading>
    Q_DECL_HIDDEN static void deliver(ProcessValue &value, const Reading &reading,
                                      bool keepValueOnError);

    void getValueInternal(ProcessValue &value, bool lock, bool keepValueOnError) const;
    /// @p attempts counts those that were made and have to be repeated.
    void readUnderLock(ProcessValue &value, bool keepValueOnError, unsigned int attempts) const;
    void tryReadUnderLock(ProcessValue &value, bool keepValueOnError, bool &repeat) const;
    bool setValueInternal(const ProcessValue &value, bool lock);
    bool writeAndLockValue(const ProcessValue &value, bool lock);
    void readValue(BufferHandlerInterface::BufferPointer buffer, ProcessValue &value,
                   bool keepValueOnError) const;
    bool writeValue(BufferHandlerInterface::BufferPointer buffer, const ProcessValue &value) const;
    quint64 getWriteSize(const ProcessValue &value) const;

    /// Reads the selected slot in its storage form. Throws a QException if it has none.
    void readSlot(ProcessValue &value) const;
    /// Writes the selected slot in its storage form. Throws a QException if it has none.
    bool writeSlot(const ProcessValue &value) const;
    template <class Action>
    auto withStorageForm(const Action &action) const;

    template <class T>
    void readProcessValue(ProcessValue &value) const;
    template <class T>
    bool writeProcessValue(const ProcessValue &value) const;
    template <class T>
    void readFloatingPoint(ProcessValue &value,
                           const QHash<T, ProcessDataDefinitions::ErrorTypes> &stateOfNumber,
                           const QHash<ProcessDataDefinitions::ErrorTypes, T> &numberOfState) const;
    template <class T>
    bool writeFloatingPoint(
        const ProcessValue &value,
        const QHash<ProcessDataDefinitions::ErrorTypes, T> &numberOfState) const;
    void readMetaData(ProcessValue &value) const;
    void writeMetaData(const ProcessValue &value) const;
    bool copyQStringDataToCharBuffer(const QString &text, unsigned char *buffer,
                                     unsigned int size) const;
    QString copyCharBufferToString(BufferHandlerInterface::BufferPointer buffer,
                                   unsigned int size) const;

    // What a short way needs, side by side: of many leaves that are read in turn each is a new line
    // of the cache, or several.
    BufferHandlerInterface *m_bufferHandler = nullptr;
    quint32 m_offsetSharedMemory = 0;
    quint32 m_relativeOffsetMetadata = 0;
    quint32 m_sizeMetadata = 0;
    quint32 m_bitmask = 0;
    quint32 m_bindingCount = 0; ///< by which a handle sees that it was made for an earlier binding
    /// Form of a slot that was found to lie inside a double buffer of this library; else None.
    SlotForm m_directForm{};
    bool m_isValid = false;
    bool m_readOnly = true;
    bool m_writeReadOnlyAllowed = false;
    int m_metaType = 0;
    quint32 m_sizeValue = 0;
    QString m_dataType;
    StorageKind m_storageKind = StorageNative;
    // Every access by the general ways points these at the buffer of that moment, reading ones
    // included.
    mutable unsigned char *m_dataPointer = nullptr;
    mutable unsigned char *m_metadataPointer = nullptr;
};
