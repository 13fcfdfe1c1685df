#pragma once

#include "Companion/Exchange/SharedBytes_p.h"
#include "ProcessData/ProcessValueErrorTypes.h"

#include <algorithm>
#include <type_traits>

/// How a number or boolean lies in its slot. None: a text, or nothing that can be read.
enum class SlotForm : quint8 {
    None,
    Boolean,
    Bit,
    Int8,
    Int16,
    Int32,
    Int64,
    UInt8,
    UInt16,
    UInt32,
    UInt64,
    Float,
    Double
};

/// Stored is what lies in the slot, Value what an application gets: no integer narrower than int.
template <class StoredType, class ValueType>
struct SlotTypes
{
    using Stored = StoredType;
    using Value = ValueType;
};

template <SlotForm form>
struct FormTypes;
template <>
struct FormTypes<SlotForm::Boolean> : SlotTypes<quint8, bool>
{
};
template <>
struct FormTypes<SlotForm::Bit> : SlotTypes<quint8, bool>
{
};
template <>
struct FormTypes<SlotForm::Int8> : SlotTypes<qint8, int>
{
};
template <>
struct FormTypes<SlotForm::Int16> : SlotTypes<qint16, int>
{
};
template <>
struct FormTypes<SlotForm::Int32> : SlotTypes<qint32, int>
{
};
template <>
struct FormTypes<SlotForm::Int64> : SlotTypes<qint64, qlonglong>
{
};
template <>
struct FormTypes<SlotForm::UInt8> : SlotTypes<quint8, unsigned int>
{
};
template <>
struct FormTypes<SlotForm::UInt16> : SlotTypes<quint16, unsigned int>
{
};
template <>
struct FormTypes<SlotForm::UInt32> : SlotTypes<quint32, unsigned int>
{
};
template <>
struct FormTypes<SlotForm::UInt64> : SlotTypes<quint64, qulonglong>
{
};
template <>
struct FormTypes<SlotForm::Float> : SlotTypes<float, float>
{
};
template <>
struct FormTypes<SlotForm::Double> : SlotTypes<double, double>
{
};

/// A slot whose place was looked up and checked once. Offsets in bytes from the start of a buffer.
struct NumberSlot
{
    quint32 valueOffset = 0;
    quint64 metadataOffset = 0; ///< a sum of two numbers from a file
    SlotForm form = SlotForm::None;
    quint8 mask = 0; ///< of SlotForm::Bit
    bool hasMetadata = false;
};

/// A number with its state, as one read found them.
template <class Value>
struct NumberReading
{
    Value value;
    ProcessDataDefinitions::ErrorTypes state;
};

namespace NumberSlots {

/// The least of the numbers that stand for a state in a float without metadata.
constexpr float leastStateNumber = 1e37F;

[[gnu::noinline]] inline ProcessDataDefinitions::ErrorTypes lookUpState(float number)
{
    return ProcessValueErrorTypeMapDefinitions::getMapFloatValueToStateType().value(
        number, ProcessDataDefinitions::PROCESS_VALUE_ERROR_TYPE_VALID);
}

/// The state that a number of a float slot without metadata stands for; 0 for a measured value.
inline ProcessDataDefinitions::ErrorTypes stateOfFloat(float number)
{
    // Nearly all measured values need no look-up.
    return number >= leastStateNumber ? lookUpState(number)
                                      : ProcessDataDefinitions::PROCESS_VALUE_ERROR_TYPE_VALID;
}

/// Whether an access to the slot takes whole words.
template <SlotForm form>
[[gnu::always_inline]] inline bool isOnWords(const unsigned char *buffer, const NumberSlot &slot)
{
    using ProcessDataDefinitions::ErrorTypes;
    return SharedBytes::isOnWords<sizeof(typename FormTypes<form>::Stored)>(buffer
                                                                            + slot.valueOffset)
           && (!slot.hasMetadata
               || SharedBytes::isOnWords<sizeof(ErrorTypes)>(buffer + slot.metadataOffset));
}

/// Reads a slot in @p buffer. The encoding of a state in a double without metadata is not
/// recognised: it is a NaN, and reads as a valid one.
template <SlotForm form, SharedAlignment alignment = SharedAlignment::Any>
[[gnu::always_inline]] inline NumberReading<typename FormTypes<form>::Value> load(
    const unsigned char *buffer, const NumberSlot &slot)
{
    using Value = typename FormTypes<form>::Value;
    const auto stored = loadShared<typename FormTypes<form>::Stored, alignment>(buffer
                                                                                + slot.valueOffset);
    Value value{};
    if constexpr (form == SlotForm::Boolean) {
        value = stored != 0;
    } else if constexpr (form == SlotForm::Bit) {
        value = (stored & slot.mask) != 0;
    } else {
        value = stored; // NOLINT(bugprone-signed-char-misuse): a small number, no character
    }
    if (__builtin_expect(static_cast<long>(slot.hasMetadata), 1L) != 0) {
        return {value, loadShared<ProcessDataDefinitions::ErrorTypes, alignment>(
                           buffer + slot.metadataOffset)};
    }
    if constexpr (form == SlotForm::Float) {
        return {value, stateOfFloat(value)};
    } else {
        return {value, ProcessDataDefinitions::PROCESS_VALUE_ERROR_TYPE_VALID};
    }
}

inline void storeState(unsigned char *buffer, const NumberSlot &slot,
                       ProcessDataDefinitions::ErrorTypes state)
{
    if (slot.hasMetadata) {
        storeShared(buffer + slot.metadataOffset, state);
    }
}

/// The number that a floating-point slot without metadata holds for a state; @p number where the
/// state has none.
template <class Number>
Number numberOfState(ProcessDataDefinitions::ErrorTypes state, Number number)
{
    if constexpr (std::is_same_v<Number, float>) {
        return ProcessValueErrorTypeMapDefinitions::getMapStateTypeToFloatValue().value(state,
                                                                                        number);
    } else {
        return ProcessValueErrorTypeMapDefinitions::getMapStateTypeToDoubleValue().value(state,
                                                                                         number);
    }
}

/// Writes a slot in @p buffer; an erroneous value comes as 0. Floating-point numbers go behind their
/// state, all others in front of it.
template <SlotForm form>
void store(unsigned char *buffer, const NumberSlot &slot, typename FormTypes<form>::Value value,
           ProcessDataDefinitions::ErrorTypes state)
{
    using Stored = typename FormTypes<form>::Stored;
    unsigned char *const place = buffer + slot.valueOffset;
    if constexpr (form == SlotForm::Float || form == SlotForm::Double) {
        storeState(buffer, slot, state);
        const bool isEncoded = !slot.hasMetadata
                               && state != ProcessDataDefinitions::PROCESS_VALUE_ERROR_TYPE_VALID;
        storeShared(place, isEncoded ? numberOfState(state, value) : value);
        return;
    }
    if constexpr (form == SlotForm::Bit) {
        const auto byte = loadShared<quint8>(place);
        storeShared(place, static_cast<quint8>(value ? byte | slot.mask : byte & ~slot.mask));
    } else {
        storeShared(place, static_cast<Stored>(value));
    }
    storeState(buffer, slot, state);
}

/// Calls @p action with the form as a constant, @p none if there is none.
template <class None, class Action>
[[gnu::always_inline]] inline auto withForm(SlotForm form, const None &none, const Action &action)
{
    // The usual one without the detour of a table.
    if (__builtin_expect(static_cast<long>(form == SlotForm::Double), 1L) != 0) {
        return action(std::integral_constant<SlotForm, SlotForm::Double>());
    }
    switch (form) {
    case SlotForm::None: break;
    case SlotForm::Boolean: return action(std::integral_constant<SlotForm, SlotForm::Boolean>());
    case SlotForm::Bit: return action(std::integral_constant<SlotForm, SlotForm::Bit>());
    case SlotForm::Int8: return action(std::integral_constant<SlotForm, SlotForm::Int8>());
    case SlotForm::Int16: return action(std::integral_constant<SlotForm, SlotForm::Int16>());
    case SlotForm::Int32: return action(std::integral_constant<SlotForm, SlotForm::Int32>());
    case SlotForm::Int64: return action(std::integral_constant<SlotForm, SlotForm::Int64>());
    case SlotForm::UInt8: return action(std::integral_constant<SlotForm, SlotForm::UInt8>());
    case SlotForm::UInt16: return action(std::integral_constant<SlotForm, SlotForm::UInt16>());
    case SlotForm::UInt32: return action(std::integral_constant<SlotForm, SlotForm::UInt32>());
    case SlotForm::UInt64: return action(std::integral_constant<SlotForm, SlotForm::UInt64>());
    case SlotForm::Float: return action(std::integral_constant<SlotForm, SlotForm::Float>());
    case SlotForm::Double: return action(std::integral_constant<SlotForm, SlotForm::Double>());
    }
    return none();
}

/// The first byte behind all that an access touches.
inline quint64 endOf(const NumberSlot &slot)
{
    const quint64 valueSize = withForm(
        slot.form, [] { return quint64{0}; },
        [](auto form) { return quint64{sizeof(typename FormTypes<form>::Stored)}; });
    const quint64 valueEnd = slot.valueOffset + valueSize;
    const quint64 metadataEnd = slot.metadataOffset
                                + quint64{sizeof(ProcessDataDefinitions::ErrorTypes)};
    return slot.hasMetadata ? std::max(valueEnd, metadataEnd) : valueEnd;
}

/// Reads a slot as a plain double; a boolean is 0 or 1.
inline NumberReading<double> loadAsDouble(const unsigned char *buffer, const NumberSlot &slot)
{
    return withForm(
        slot.form, [] { return NumberReading<double>{}; },
        [&](auto form) {
            const auto reading = load<form>(buffer, slot);
            return NumberReading<double>{static_cast<double>(reading.value), reading.state};
        });
}

} // namespace NumberSlots
