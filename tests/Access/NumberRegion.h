#pragma once

#include "ProcessData/Linux/ProcessDataValue.h"
#include "ProcessDataManagement/ProcessDataManager.h"
#include "ProcessDataManagement/ProcessDescription.h"

#include <QRandomGenerator>
#include <QStringList>

#include <cmath>
#include <cstring>

/// A description with a leaf of every storage form of a number, each with and without metadata and
/// at each of the addresses 0 to 7 modulo 8, one behind the other.
struct NumberRegion
{
    using ErrorTypes = ProcessDataDefinitions::ErrorTypes;

    explicit NumberRegion(bool hasDoubleBuffer) : description(0, hasDoubleBuffer)
    {
        for (const auto &form : forms()) {
            for (quint32 place = 0; place < 16; ++place) {
                addLeaf(form, place);
            }
        }
        description.size = m_end;
    }

    struct Form
    {
        const char *type;
        quint32 size;
    };

    static QList<Form> forms()
    {
        return {{"boolean", 1}, {"bit", 1},    {"int8", 1},  {"int16", 2},
                {"int32", 4},   {"int64", 8},  {"uint8", 1}, {"uint16", 2},
                {"uint32", 4},  {"uint64", 8}, {"float", 4}, {"double", 8}};
    }

    QStringList urls() const { return description.leaves.keys(); }

    ProcessDescription description;

private:
    void addLeaf(const Form &form, quint32 place)
    {
        m_end += (place - m_end) & 7U;
        SlotDescription slot;
        slot.type = QString::fromLatin1(form.type);
        slot.offset = m_end;
        slot.sizeValue = form.size;
        slot.bitmask = slot.type == QStringLiteral("bit") ? 0x24 : 0;
        if (place >= 8) {
            slot.sizeMetadata = 4;
            slot.relativeOffsetMetadata = form.size;
        }
        description.leaves.insert(QStringLiteral("%1-%2").arg(slot.type).arg(place), slot);
        m_end += slot.sizeValue + slot.sizeMetadata;
    }

    quint32 m_end = 0;
};

/// A description that is live in this process.
struct LiveRegion
{
    explicit LiveRegion(const ProcessDescription &description,
                        ProcessDataManager::InitTypeSharedMemory type =
                            ProcessDataManager::InitTypeSharedMemoryCreate)
        : root(manager.createProcessData(description.parse(), type))
    {
    }

    ProcessDataValueSharedPointer leaf(const QString &url) const
    {
        return root->getLeafProcessDataValue(url);
    }

    /// Publishes bytes that mean anything or nothing; now and then numbers that stand for a state.
    void publishBytes(QRandomGenerator &random)
    {
        manager.lockWriteBuffer();
        unsigned char *const buffer = manager.getPointerWriteBuffer();
        for (unsigned int i = 0; i < manager.getSizeBuffer(); ++i) {
            buffer[i] = static_cast<unsigned char>(random.bounded(256));
        }
        manager.unlockWriteBuffer();
        manager.swapReadAndWriteBuffer();
    }

    ProcessDataManager manager;
    ProcessDataManager::BaseClassSharedPointer root;
};

/// Bit by bit, so that NaN equals itself and 0 differs from -0.
inline bool isSameNumber(double left, double right)
{
    return std::memcmp(&left, &right, sizeof left) == 0 || (std::isnan(left) && std::isnan(right));
}

/// Whether a number and its state are what getValue() gives for the leaf.
inline bool agreesWithGetValue(const ProcessDataValue &leaf, double number,
                               ProcessDataDefinitions::ErrorTypes state)
{
    ProcessValue expected(ProcessDataDefinitions::PROCESS_VALUE_ERROR_TYPE_TIMEOUT);
    leaf.getValue(expected, true);
    return expected.getValue().isValid() && isSameNumber(expected.getValue().toDouble(), number)
           && expected.getErrorType() == state;
}
