#include "integration/EveryTypeDescription.h"

#include <QJsonDocument>
#include <QJsonObject>

#include <limits>

namespace {

struct Slot
{
    const char *name;
    const char *type;
    int size;
    int metadata;
    int bitmask;
};

// Sizes of 1, 3 and 30 bytes in between put most slots at addresses that are not aligned.
const Slot slots[] = {
    {"boolean", "boolean", 1, 4, 0}, {"booleanBare", "boolean", 1, 0, 0},
    {"bitLow", "bit", 1, 4, 0x01},   {"bitHigh", "bit", 1, 0, 0x80},
    {"int8", "int8", 1, 4, 0},       {"uint8", "uint8", 1, 4, 0},
    {"int16", "int16", 2, 4, 0},     {"uint16", "uint16", 2, 4, 0},
    {"int32", "int32", 4, 4, 0},     {"uint32", "uint32", 4, 4, 0},
    {"int64", "int64", 8, 4, 0},     {"uint64", "uint64", 8, 4, 0},
    {"float", "float", 4, 4, 0},     {"floatBare", "float", 4, 0, 0},
    {"double", "double", 8, 4, 0},   {"doubleBare", "double", 8, 0, 0},
    {"text", "string", 30, 4, 0},    {"int32Bare", "int32", 4, 0, 0},
};

} // namespace

QList<TypeCase> everyTypeCases()
{
    using Limits64 = std::numeric_limits<qint64>;
    using LimitsU64 = std::numeric_limits<quint64>;
    return {
        {QStringLiteral("boolean"), true, false, true},
        {QStringLiteral("booleanBare"), true, false, false},
        {QStringLiteral("bitLow"), true, false, true},
        {QStringLiteral("bitHigh"), true, false, false},
        {QStringLiteral("int8"), -128, 127, true},
        {QStringLiteral("uint8"), 255U, 0U, true},
        {QStringLiteral("int16"), -32768, 32767, true},
        {QStringLiteral("uint16"), 65535U, 1U, true},
        {QStringLiteral("int32"), std::numeric_limits<int>::min(), 5, true},
        {QStringLiteral("uint32"), std::numeric_limits<unsigned int>::max(), 7U, true},
        {QStringLiteral("int64"), QVariant(Limits64::min()), QVariant(Limits64::max()), true},
        {QStringLiteral("uint64"), QVariant(LimitsU64::max()), QVariant(quint64(9)), true},
        {QStringLiteral("float"), QVariant(1.5F), QVariant(-2.25e10F), true},
        {QStringLiteral("floatBare"), QVariant(0.5F), QVariant(3e5F), true},
        {QStringLiteral("double"), 20.123456789, -1e300, true},
        {QStringLiteral("doubleBare"), 1e-300, 12.0, false},
        {QStringLiteral("text"), QStringLiteral("flow µ/s"), QStringLiteral("fourteen chars"),
         true},
        {QStringLiteral("int32Bare"), -77, 42, false},
    };
}

QByteArray everyTypeDescription(const QString &memoryKey, bool doubleBuffer)
{
    QJsonObject children;
    int offset = 0;
    for (const Slot &slot : slots) {
        children.insert(QLatin1String(slot.name),
                        QJsonObject{{QStringLiteral("type"), QLatin1String(slot.type)},
                                    {QStringLiteral("offsetSharedMemory"), offset},
                                    {QStringLiteral("sizeValue"), slot.size},
                                    {QStringLiteral("sizeMetadata"), slot.metadata},
                                    {QStringLiteral("relativeOffsetMetadata"), slot.size},
                                    {QStringLiteral("bitmask"), slot.bitmask},
                                    {QStringLiteral("displayPosition"), offset}});
        offset += slot.size + slot.metadata;
    }
    const QJsonObject root{{QStringLiteral("type"), QStringLiteral("treenode")},
                           {QStringLiteral("keyProcessDataMemory"), memoryKey},
                           {QStringLiteral("doubleBuffer"), doubleBuffer},
                           {QStringLiteral("sizeOfSharedMemory"), offset},
                           {QStringLiteral("value"), children}};
    return QJsonDocument(root).toJson(QJsonDocument::Compact);
}
