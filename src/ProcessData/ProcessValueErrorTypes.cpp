#include "ProcessData/ProcessValueErrorTypes.h"

#include "Companion/Lasting_p.h"

#include <QDebug>

#include <cstddef>
#include <cstring>
#include <limits>

using ProcessDataDefinitions::ErrorTypes;
using ProcessDataDefinitions::NamurStateTypes;

namespace {

struct Encoding
{
    ErrorTypes state;
    quint32 floatBits;
    quint64 doubleBits;
};

static_assert(std::numeric_limits<float>::is_iec559 && std::numeric_limits<double>::is_iec559,
              "other processes read these encodings bit by bit");

// Given as bits: the shared memory holds exactly these, whatever a compiler makes of 3e37F.
constexpr Encoding encodings[] = {
    {ProcessDataDefinitions::PROCESS_VALUE_ERROR_TYPE_UNDERRANGE, 0x7CF0BDC2,
     0x7FF8'0000'0000'0001},
    {ProcessDataDefinitions::PROCESS_VALUE_ERROR_TYPE_OVERRANGE, 0x7D70BDC2, 0x7FF8'0000'0000'0002},
    {ProcessDataDefinitions::PROCESS_VALUE_ERROR_TYPE_NO_VALID_INPUT_VALUE, 0x7DB48E52,
     0x7FF8'0000'0000'0003},
    {ProcessDataDefinitions::PROCESS_VALUE_ERROR_TYPE_DIVISION_BY_ZERO, 0x7DF0BDC2,
     0x7FF8'0000'0000'0004},
    {ProcessDataDefinitions::PROCESS_VALUE_ERROR_TYPE_INCORRECT_MATHEMATIC_VALUE, 0x7E167699,
     0x7FF8'0000'0000'0005},
    {ProcessDataDefinitions::PROCESS_VALUE_ERROR_TYPE_INVALID_TEMPERATURE, 0x7E348E52,
     0x7FF8'0000'0000'0006},
    {ProcessDataDefinitions::PROCESS_VALUE_ERROR_TYPE_SENSOR_SHORT_CIRCUIT, 0x7E52A60A,
     0x7FF8'0000'0000'0007},
    {ProcessDataDefinitions::PROCESS_VALUE_ERROR_TYPE_SENSOR_BREAKAGE, 0x7E70BDC2,
     0x7FF8'0000'0000'0008},
    {ProcessDataDefinitions::PROCESS_VALUE_ERROR_TYPE_TIMEOUT, 0x7E876ABD, 0x7FF8'0000'0000'0009},
};

struct ErrorText
{
    ErrorTypes state;
    const char *text;
};

constexpr ErrorText errorTexts[] = {
    {ProcessDataDefinitions::PROCESS_VALUE_ERROR_TYPE_VALID, "PROCESS_VALUE_ERROR_TYPE_VALID"},
    {ProcessDataDefinitions::PROCESS_VALUE_ERROR_TYPE_UNDERRANGE,
     "PROCESS_VALUE_ERROR_TYPE_UNDERRANGE"},
    {ProcessDataDefinitions::PROCESS_VALUE_ERROR_TYPE_OVERRANGE,
     "PROCESS_VALUE_ERROR_TYPE_OVERRANGE"},
    {ProcessDataDefinitions::PROCESS_VALUE_ERROR_TYPE_NO_VALID_INPUT_VALUE,
     "PROCESS_VALUE_ERROR_TYPE_NO_VALID_INPUT_VALUE"},
    {ProcessDataDefinitions::PROCESS_VALUE_ERROR_TYPE_DIVISION_BY_ZERO,
     "PROCESS_VALUE_ERROR_TYPE_DIVISION_BY_ZERO"},
    {ProcessDataDefinitions::PROCESS_VALUE_ERROR_TYPE_INCORRECT_MATHEMATIC_VALUE,
     "PROCESS_VALUE_ERROR_TYPE_INCORRECT_MATHEMATIC_VALUE"},
    {ProcessDataDefinitions::PROCESS_VALUE_ERROR_TYPE_INVALID_TEMPERATURE,
     "PROCESS_VALUE_ERROR_TYPE_INVALID_TEMPERATURE"},
    {ProcessDataDefinitions::PROCESS_VALUE_ERROR_TYPE_SENSOR_SHORT_CIRCUIT,
     "PROCESS_VALUE_ERROR_TYPE_SENSOR_SHORT_CIRCUIT"},
    {ProcessDataDefinitions::PROCESS_VALUE_ERROR_TYPE_SENSOR_BREAKAGE,
     "PROCESS_VALUE_ERROR_TYPE_SENSOR_BREAKAGE"},
    {ProcessDataDefinitions::PROCESS_VALUE_ERROR_TYPE_TIMEOUT, "PROCESS_VALUE_ERROR_TYPE_TIMEOUT"},
};

struct NamurLetter
{
    NamurStateTypes state;
    char letter;
};

constexpr NamurLetter namurLetters[] = {
    {ProcessDataDefinitions::NAMUR_STATE_TYPE_NONE, ' '},
    {ProcessDataDefinitions::NAMUR_STATE_TYPE_FAILURE, 'F'},
    {ProcessDataDefinitions::NAMUR_STATE_TYPE_CHECK_FUNCTION, 'C'},
    {ProcessDataDefinitions::NAMUR_STATE_TYPE_OUT_OF_SPECIFICATION, 'S'},
    {ProcessDataDefinitions::NAMUR_STATE_TYPE_MAINTENANCE_REQUIRED, 'M'},
};

template <class Number, class Bits>
Number numberWithBits(Bits bits)
{
    static_assert(sizeof(Number) == sizeof(Bits));
    Number number = 0;
    std::memcpy(&number, &bits, sizeof number);
    return number;
}

/// One row of a map for each row of a constant table.
template <class Key, class Value, class Row, std::size_t rowCount, class KeyOf, class ValueOf>
QHash<Key, Value> makeMap(const Row (&rows)[rowCount], KeyOf keyOf, ValueOf valueOf)
{
    QHash<Key, Value> map;
    map.reserve(static_cast<int>(rowCount));
    for (const Row &row : rows) {
        map.insert(keyOf(row), valueOf(row));
    }
    return map;
}

float floatOf(const Encoding &encoding)
{
    return numberWithBits<float>(encoding.floatBits);
}

double doubleOf(const Encoding &encoding)
{
    return numberWithBits<double>(encoding.doubleBits);
}

template <class Row>
auto stateOf(const Row &row)
{
    return row.state;
}

QString textOf(const ErrorText &row)
{
    return QString::fromLatin1(row.text);
}

QChar letterOf(const NamurLetter &row)
{
    return QLatin1Char(row.letter);
}

const QHash<ErrorTypes, QString> &errorTextMap()
{
    static const Lasting map(makeMap<ErrorTypes, QString>(errorTexts, stateOf<ErrorText>, textOf));
    return map.get();
}

const QHash<NamurStateTypes, QChar> &namurLetterMap()
{
    static const Lasting map(
        makeMap<NamurStateTypes, QChar>(namurLetters, stateOf<NamurLetter>, letterOf));
    return map.get();
}

} // namespace

QString getProcessValueStateTypeAsString(ErrorTypes state)
{
    return errorTextMap().value(state, QStringLiteral("not defined"));
}

QChar getNamurStateTypeAsCharacter(NamurStateTypes state)
{
    const auto &letters = namurLetterMap();
    const auto letter = letters.constFind(state);
    if (letter == letters.cend()) {
        qWarning() << "Received an invalid namur state type!";
        return letters.value(ProcessDataDefinitions::NAMUR_STATE_TYPE_FAILURE);
    }
    return *letter;
}

QString getNamurStateTypeAsString(NamurStateTypes state)
{
    return QString(getNamurStateTypeAsCharacter(state));
}

ProcessValueErrorTypeMapDefinitions::~ProcessValueErrorTypeMapDefinitions() = default;

const QHash<ErrorTypes, float> &ProcessValueErrorTypeMapDefinitions::getMapStateTypeToFloatValue()
{
    static const Lasting map(makeMap<ErrorTypes, float>(encodings, stateOf<Encoding>, floatOf));
    return map.get();
}

const QHash<float, ErrorTypes> &ProcessValueErrorTypeMapDefinitions::getMapFloatValueToStateType()
{
    static const Lasting map(makeMap<float, ErrorTypes>(encodings, floatOf, stateOf<Encoding>));
    return map.get();
}

const QHash<ErrorTypes, double> &ProcessValueErrorTypeMapDefinitions::getMapStateTypeToDoubleValue()
{
    static const Lasting map(makeMap<ErrorTypes, double>(encodings, stateOf<Encoding>, doubleOf));
    return map.get();
}

const QHash<double, ErrorTypes> &ProcessValueErrorTypeMapDefinitions::getMapDoubleValueToStateType()
{
    static const Lasting map(makeMap<double, ErrorTypes>(encodings, doubleOf, stateOf<Encoding>));
    return map.get();
}
