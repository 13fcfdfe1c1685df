#include "Access/ProcessDoubleHandle.h"
#include "Companion/ConfigurationAndProcessDataDefinitions.h"
#include "Configuration/ConfigurationAndProcessDataParser.h"
#include "FuzzTarget.h"
#include "HeapBuffers.h"
#include "ShortWays.h"
#include "SlotWrites.h"
#include "ToolkitLeak.h"

// The leaves of a process description from anybody, whatever offsets and sizes they name, touch
// nothing outside the buffer, and write nothing beside their slot.
//
// An input is a description, as its file holds it; behind a zero byte follows what lies in the
// buffer. The description says the buffer's size.

namespace {

using Base = ConfigurationAndProcessDataBase;
using Definitions = ConfigurationAndProcessDataDefinitions;

const quint32 largestBuffer = 512;

quint32 bufferSizeOf(const Base &root)
{
    const QString key = Definitions::getKeyDataPropertySizeOfSharedMemory();
    return root.getProperty(key).toUInt() % (largestBuffer + 1);
}

void readLeaf(const ProcessDataValueSharedPointer &leaf)
{
    for (const bool keepsValue : {false, true}) {
        ProcessValue value(ProcessDataDefinitions::PROCESS_VALUE_ERROR_TYPE_TIMEOUT);
        leaf->getValue(value, keepsValue);
        ProcessValue same(ProcessDataDefinitions::PROCESS_VALUE_ERROR_TYPE_TIMEOUT);
        leaf->getValueNoLock(same, keepsValue);
        require(value == same, "a read is the same with and without a lock");
        value.toString();
    }
}

void checkHandle(const ProcessDataValueSharedPointer &leaf, HeapBuffers &buffers)
{
    const ProcessDoubleHandle handle(leaf);
    double number = 7;
    auto state = ProcessDataDefinitions::PROCESS_VALUE_ERROR_TYPE_TIMEOUT;
    const bool isRead = handle.read(number, state);
    require(isRead || (number == 7 && state == 9), "a failed read leaves number and state alone");
    require(handle.isValid() || !isRead, "a handle of nothing reads nothing");
    const QByteArray before = buffers.written();
    const bool isWritten = handle.write(1);
    require(isWritten || buffers.written() == before, "a refused write leaves the buffer alone");
}

} // namespace

void runInput(const QByteArray &input)
{
    const int end = input.indexOf('\0');
    const QByteArray description = input.left(end);
    const ToolkitLeak leak(description);
    const ConfigurationAndProcessDataParser parser;
    const auto root = parser.parseFromByteArray(description, QStringLiteral("process.json"));
    if (root.isNull()) {
        return;
    }
    HeapBuffers buffers(bufferSizeOf(*root), end < 0 ? QByteArray() : input.mid(end + 1));
    DoubleBufferOnHeap own(bufferSizeOf(*root));
    Base::ListElements elements;
    root->collectElements(elements, false);
    for (const auto &element : elements) {
        const auto leaf = element.dynamicCast<ProcessDataValue>();
        require(!leaf.isNull(), "the leaves of a process description are process values");
        readLeaf(leaf);
        leaf->setBufferHandlerInterface(&buffers, true);
        readLeaf(leaf);
        checkSlotWrites(*leaf, buffers);
        checkHandle(leaf, buffers);
        checkShortWays(leaf, buffers, own);
    }
    require(buffers.isReleased(), "every lock is released");
}
