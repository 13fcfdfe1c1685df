#include "torture/SetCodec.h"

#include <QJsonDocument>
#include <QJsonObject>

namespace Torture {

namespace {

using ProcessDataDefinitions::ErrorTypes;

constexpr auto valid = ProcessDataDefinitions::PROCESS_VALUE_ERROR_TYPE_VALID;
constexpr auto noInput = ProcessDataDefinitions::PROCESS_VALUE_ERROR_TYPE_NO_VALID_INPUT_VALUE;
constexpr int textBytes = 34;
constexpr int wordBytes = 4;
constexpr int numberBytes = 8;

struct TypeRow
{
    const char *name;
    const char *type;
    int size;
    int metadata;
};

// Odd sizes in between put most slots at addresses that are not aligned.
const TypeRow rows[] = {
    {"Boolean", "boolean", 1, wordBytes}, {"Int8", "int8", 1, wordBytes},
    {"Uint8", "uint8", 1, wordBytes},     {"Int16", "int16", 2, wordBytes},
    {"Uint16", "uint16", 2, wordBytes},   {"Int32", "int32", 4, wordBytes},
    {"Uint32", "uint32", 4, wordBytes},   {"Int64", "int64", 8, wordBytes},
    {"Float", "float", 4, wordBytes},     {"FloatBare", "float", 4, 0},
    {"Double", "double", 8, wordBytes},   {"Text", "string", textBytes, wordBytes},
    {"Uint64", "uint64", 8, wordBytes},
};

/// Puts leaves one behind the other.
class Layout
{
public:
    void add(const QString &name, const TypeRow &row, int group)
    {
        m_plans.append({name, QLatin1String(row.type), group, m_end, row.size, row.metadata,
                        row.size, 0, false});
        m_end += row.size + row.metadata;
    }
    /// At an address where a number is stored at once: not even a kill leaves half of it.
    void addNumber(const QString &name, int group)
    {
        m_end = (m_end + numberBytes - 1) / numberBytes * numberBytes;
        add(name, {"", "uint64", numberBytes, wordBytes}, group);
        m_plans.last().isNumber = true;
    }
    /// A byte whose bits belong to both groups in turn.
    void addBits(const QString &name)
    {
        for (int bit = 0; bit < 8; ++bit) {
            m_plans.append({name + QString::number(bit), QStringLiteral("bit"), bit % 2, m_end, 1,
                            0, 1, 1 << bit, false});
        }
        ++m_end;
    }
    const QVector<LeafPlan> &plans() const { return m_plans; }
    int end() const { return m_end; }

private:
    QVector<LeafPlan> m_plans;
    int m_end = 0;
};

Layout makeLayout()
{
    constexpr int rounds = 2;
    const TypeRow textRow{"", "string", textBytes, wordBytes};
    const QString prefixes[] = {QStringLiteral("first"), QStringLiteral("second")};
    Layout layout;
    for (int group = FirstGroup; group <= SecondGroup; ++group) {
        layout.addNumber(prefixes[group] + QLatin1String("Number"), group);
    }
    for (int round = 0; round < rounds; ++round) {
        for (const TypeRow &row : rows) {
            for (int group = FirstGroup; group <= SecondGroup; ++group) {
                layout.add(prefixes[group] + QLatin1String(row.name) + QString::number(round), row,
                           group);
            }
        }
        layout.addBits(QStringLiteral("bits%1x").arg(round));
    }
    for (int slot = 0; slot < maximumPeers; ++slot) {
        layout.addNumber(QStringLiteral("singleNumber%1").arg(slot), SingleValues);
        layout.add(QStringLiteral("singleText%1").arg(slot), textRow, SingleValues);
    }
    return layout;
}

/// Spreads a number over all its bits, so that bytes of two sets hardly ever agree.
quint64 scatter(quint64 number, int index)
{
    quint64 bits = number + static_cast<quint64>(index + 1) * 0x9E3779B97F4A7C15U;
    bits = (bits ^ bits >> 30U) * 0xBF58476D1CE4E5B9U;
    bits = (bits ^ bits >> 27U) * 0x94D049BB133111EBU;
    return bits ^ bits >> 31U;
}

ErrorTypes expectedState(const LeafPlan &leaf, quint64 bits)
{
    const bool canCarryState = leaf.metadata != 0 || leaf.type == QLatin1String("float");
    const quint64 state = bits >> 40U;
    return !leaf.isNumber && canCarryState && state % 4 == 0
               ? static_cast<ErrorTypes>(1 + state / 4 % 9)
               : valid;
}

/// As a read gives it: small integers come as int.
QVariant expectedContent(const QString &type, quint64 bits)
{
    if (type == QLatin1String("boolean") || type == QLatin1String("bit")) {
        return (bits & 1U) != 0;
    }
    if (type == QLatin1String("int8")) {
        return static_cast<int>(static_cast<qint8>(bits));
    }
    if (type == QLatin1String("uint8")) {
        return static_cast<unsigned int>(static_cast<quint8>(bits));
    }
    if (type == QLatin1String("int16")) {
        return static_cast<int>(static_cast<qint16>(bits));
    }
    if (type == QLatin1String("uint16")) {
        return static_cast<unsigned int>(static_cast<quint16>(bits));
    }
    if (type == QLatin1String("int32")) {
        return static_cast<int>(bits);
    }
    if (type == QLatin1String("uint32")) {
        return static_cast<unsigned int>(bits);
    }
    if (type == QLatin1String("int64")) {
        return static_cast<qlonglong>(bits);
    }
    if (type == QLatin1String("float")) {
        return QVariant::fromValue(static_cast<float>(bits & 0xFFFFFFU));
    }
    if (type == QLatin1String("double")) {
        return static_cast<double>(bits >> 12U);
    }
    if (type == QLatin1String("string")) {
        return QString::number(bits >> (bits & 31U), 16);
    }
    return static_cast<qulonglong>(bits);
}

QString describe(const ProcessValue &value)
{
    return QStringLiteral("%1 (%2, state %3)")
        .arg(value.getValue().toString(), QLatin1String(value.getValue().typeName()))
        .arg(static_cast<int>(value.getErrorType()));
}

} // namespace

QByteArray SetCodec::description(const QString &key, bool isDoubleBuffer)
{
    const Layout layout = makeLayout();
    QJsonObject children;
    for (const LeafPlan &leaf : layout.plans()) {
        QJsonObject json{{QStringLiteral("type"), leaf.type},
                         {QStringLiteral("offsetSharedMemory"), leaf.offset},
                         {QStringLiteral("sizeValue"), leaf.size},
                         {QStringLiteral("sizeMetadata"), leaf.metadata},
                         {QStringLiteral("relativeOffsetMetadata"), leaf.relativeMetadata},
                         {QStringLiteral("displayPosition"), leaf.offset}};
        if (leaf.bitmask != 0) {
            json.insert(QStringLiteral("bitmask"), leaf.bitmask);
        }
        children.insert(leaf.name, json);
    }
    const QJsonObject root{{QStringLiteral("type"), QStringLiteral("treenode")},
                           {QStringLiteral("keyProcessDataMemory"), key},
                           {QStringLiteral("doubleBuffer"), isDoubleBuffer},
                           {QStringLiteral("sizeOfSharedMemory"), layout.end()},
                           {QStringLiteral("value"), children}};
    return QJsonDocument(root).toJson(QJsonDocument::Compact);
}

SetCodec::SetCodec(const ConfigurationAndProcessDataBase::BaseClassSharedPointer &root)
{
    const Layout layout = makeLayout();
    for (const LeafPlan &leaf : layout.plans()) {
        m_plans[leaf.group].append(leaf);
        m_leaves[leaf.group].append(root->getLeafProcessDataValue(leaf.name));
    }
}

bool SetCodec::isComplete() const
{
    return !m_leaves[FirstGroup].contains({}) && !m_leaves[SecondGroup].contains({})
           && !m_leaves[SingleValues].contains({});
}

bool SetCodec::writeLeaf(Group group, int index, quint64 number) const
{
    const ProcessValue value = expectedValue(m_plans[group].at(index), index, number);
    return m_leaves[group].at(index)->setValueNoLock(value);
}

void SetCodec::readGroup(Group group, GroupValues &values) const
{
    values.assign(static_cast<std::size_t>(size(group)), ProcessValue(valid));
    int index = 0;
    for (ProcessValue &value : values) {
        // With the content of erroneous values: nobody may have written any.
        m_leaves[group].at(index)->getValueNoLock(value, true);
        ++index;
    }
}

bool SetCodec::readGroup(Group group, const ProcessDataSnapshot &set, GroupValues &values) const
{
    values.assign(static_cast<std::size_t>(size(group)), ProcessValue(valid));
    bool isWhole = true;
    int index = 0;
    for (ProcessValue &value : values) {
        isWhole = set.getValue(*m_leaves[group].at(index), value, true) && isWhole;
        ++index;
    }
    return isWhole;
}

bool SetCodec::numberOf(const GroupValues &values, quint64 &number)
{
    const ProcessValue &leaf = values.front();
    number = leaf.getValue().toULongLong();
    return leaf.getErrorType() == valid || (leaf.getErrorType() == noInput && number == 0);
}

QString SetCodec::findForeign(Group group, const GroupValues &values, quint64 number) const
{
    int index = 0;
    for (const ProcessValue &value : values) {
        const LeafPlan &leaf = m_plans[group].at(index);
        const ProcessValue expected = expectedValue(leaf, index, number);
        ++index;
        const bool hasState = value.getErrorType() == expected.getErrorType();
        // Without an error word the number itself stands for the state.
        const bool isEncoded = leaf.metadata == 0 && expected.getErrorType() != valid;
        if (!hasState || (!isEncoded && value.getValue() != expected.getValue())) {
            return QStringLiteral("set %1, but %2 reads %3 and should read %4")
                .arg(number)
                .arg(leaf.name, describe(value), describe(expected));
        }
    }
    return {};
}

ProcessDataValue &SetCodec::groupNumber(Group group) const
{
    return *m_leaves[group].first();
}

ProcessDataValue &SetCodec::singleNumber(int slot) const
{
    return *m_leaves[SingleValues].at(2 * slot);
}

ProcessDataValue &SetCodec::singleText(int slot) const
{
    return *m_leaves[SingleValues].at(2 * slot + 1);
}

ProcessValue SetCodec::expectedValue(const LeafPlan &leaf, int index, quint64 number)
{
    const quint64 bits = scatter(number, index);
    ErrorTypes state = expectedState(leaf, bits);
    if (number == 0) {
        state = leaf.metadata == 0 && leaf.type == QLatin1String("bit") ? valid : noInput;
    }
    QVariant content = leaf.isNumber ? QVariant(number) : expectedContent(leaf.type, bits);
    if (number == 0 || state != valid) {
        // The content of an erroneous value is not stored: the slot holds zero.
        content = leaf.type == QLatin1String("string") ? QVariant(QLatin1String(""))
                                                       : expectedContent(leaf.type, 0);
    }
    return ProcessValue(content, state);
}

} // namespace Torture
