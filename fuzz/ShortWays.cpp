#include "ShortWays.h"

#include "Access/ProcessDoubleHandle.h"
#include "FuzzTarget.h"

#include <QVector>

#include <algorithm>
#include <cmath>

namespace {

using ProcessDataDefinitions::ErrorTypes;
using ProcessDataDefinitions::PROCESS_VALUE_ERROR_TYPE_OVERRANGE;
using ProcessDataDefinitions::PROCESS_VALUE_ERROR_TYPE_TIMEOUT;
using ProcessDataDefinitions::PROCESS_VALUE_ERROR_TYPE_VALID;

/// All that can be read of a leaf.
struct Readings
{
    struct Number
    {
        bool isRead = false;
        double number = 7;
        ErrorTypes state = PROCESS_VALUE_ERROR_TYPE_TIMEOUT;
    };

    QVector<ProcessValue> values;
    Number number;
    Number numberNoLock;
};

Readings readAll(const ProcessDataValueSharedPointer &leaf)
{
    Readings readings;
    for (const bool keepsValue : {false, true}) {
        ProcessValue value(PROCESS_VALUE_ERROR_TYPE_TIMEOUT);
        leaf->getValue(value, keepsValue);
        readings.values.append(value);
        ProcessValue same(PROCESS_VALUE_ERROR_TYPE_TIMEOUT);
        leaf->getValueNoLock(same, keepsValue);
        readings.values.append(same);
    }
    const ProcessDoubleHandle handle(leaf);
    Readings::Number &locked = readings.number;
    locked.isRead = handle.read(locked.number, locked.state);
    Readings::Number &plain = readings.numberNoLock;
    plain.isRead = handle.readNoLock(plain.number, plain.state);
    return readings;
}

/// By content as well, which equality leaves out where the state is an error.
bool isSame(const ProcessValue &left, const ProcessValue &right)
{
    return left == right
           && ProcessValue(left.getValue(), PROCESS_VALUE_ERROR_TYPE_VALID)
                  == ProcessValue(right.getValue(), PROCESS_VALUE_ERROR_TYPE_VALID);
}

bool isSame(const Readings::Number &left, const Readings::Number &right)
{
    const bool isSameNumber = left.number == right.number
                              || (std::isnan(left.number) && std::isnan(right.number));
    return isSameNumber && left.state == right.state && left.isRead == right.isRead;
}

bool isSame(const Readings &left, const Readings &right)
{
    return std::equal(left.values.begin(), left.values.end(), right.values.begin(),
                      [](const auto &one, const auto &other) { return isSame(one, other); })
           && isSame(left.number, right.number) && isSame(left.numberNoLock, right.numberNoLock);
}

QVector<ProcessValue> valuesToWrite()
{
    return {ProcessValue(-2.5, PROCESS_VALUE_ERROR_TYPE_VALID),
            ProcessValue(300U, PROCESS_VALUE_ERROR_TYPE_VALID),
            ProcessValue(2.5F, PROCESS_VALUE_ERROR_TYPE_VALID),
            ProcessValue(true, PROCESS_VALUE_ERROR_TYPE_VALID), PROCESS_VALUE_ERROR_TYPE_OVERRANGE};
}

} // namespace

void checkShortWays(const ProcessDataValueSharedPointer &leaf, HeapBuffers &general,
                    DoubleBufferOnHeap &own)
{
    own.copyFrom(general);
    const Readings expected = readAll(leaf);
    leaf->setBufferHandlerInterface(&own.handler(), true);
    require(isSame(readAll(leaf), expected), "the short ways read what the general ones read");
    for (const ProcessValue &value : valuesToWrite()) {
        leaf->setBufferHandlerInterface(&own.handler(), true);
        const bool isWritten = leaf->setValueNoLock(value);
        ProcessDoubleHandle(leaf).writeNoLock(-3);
        leaf->setBufferHandlerInterface(&general, true);
        require(leaf->setValueNoLock(value) == isWritten, "both ways take the same values");
        ProcessDoubleHandle(leaf).writeNoLock(-3);
        require(own.written() == general.written(), "both ways write the same bytes");
        own.copyFrom(general);
    }
}
