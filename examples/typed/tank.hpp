// Made by `tessel gen cpp` from tank.process.json. Do not change it: make it anew.
#pragma once

#include "Access/ProcessDoubleHandle.h"
#include "Inspection/RegionInspection.h"
#include "ProcessData/Linux/ProcessDataValue.h"
#include "ProcessDataManagement/LayoutFingerprint.h"

#include <QString>
#include <QVariant>

namespace tank {

/// LayoutFingerprint of the description from which this was made.
constexpr quint64 layoutFingerprint = Q_UINT64_C(0x95aebd7d16dc5afc);

/// In which trees travel.
using Root = ConfigurationAndProcessDataBase::BaseClassSharedPointer;
/// The error state of a value.
using State = ProcessDataDefinitions::ErrorTypes;

/// Why a tree, or the region behind it, is none for these accessors; empty if they fit.
inline QString problemOf(const Root &root)
{
    if (!root) {
        return QStringLiteral("there is no tree");
    }
    if (LayoutFingerprint(root).getValue() != layoutFingerprint) {
        return QStringLiteral("the description has another layout than when the accessors were made");
    }
    const auto ofRegion = RegionInspection(root).getFingerprint();
    if (ofRegion && *ofRegion != layoutFingerprint) {
        return QStringLiteral("the region has another layout than when the accessors were made");
    }
    return {};
}

// Each accessor is one leaf. Reads give false, with both untouched, if there was nothing to read; writes, if the value
// was refused. The forms with NoLock are for inside a lock that the caller holds. Beside a state that is not valid a
// value means nothing. Lifetime and threads are those of ProcessDoubleHandle.
namespace leaf {

constexpr State valid = ProcessDataDefinitions::PROCESS_VALUE_ERROR_TYPE_VALID;

/// A floating-point number.
class Double
{
public:
    Double(const Root &root, const QString &url)
        : m_handle(root ? ProcessDoubleHandle(root, url) : ProcessDoubleHandle())
    {
    }

    bool isValid() const { return m_handle.isValid(); }
    bool read(double &value, State &state) const { return m_handle.read(value, state); }
    bool readNoLock(double &value, State &state) const { return m_handle.readNoLock(value, state); }
    bool write(double value, State state = valid) const { return m_handle.write(value, state); }
    bool writeNoLock(double value, State state = valid) const
    {
        return m_handle.writeNoLock(value, state);
    }

private:
    ProcessDoubleHandle m_handle;
};

/// An integer of up to 32 bits. One that its type has no room for is refused.
template <qint64 least, qint64 most>
class Integer
{
public:
    Integer(const Root &root, const QString &url) : m_number(root, url) {}

    bool isValid() const { return m_number.isValid(); }
    bool read(qint64 &value, State &state) const
    {
        double number = 0;
        const bool isRead = m_number.read(number, state);
        value = isRead ? static_cast<qint64>(number) : value;
        return isRead;
    }
    bool readNoLock(qint64 &value, State &state) const
    {
        double number = 0;
        const bool isRead = m_number.readNoLock(number, state);
        value = isRead ? static_cast<qint64>(number) : value;
        return isRead;
    }
    bool write(qint64 value, State state = valid) const
    {
        return fits(value, state) && m_number.write(static_cast<double>(value), state);
    }
    bool writeNoLock(qint64 value, State state = valid) const
    {
        return fits(value, state) && m_number.writeNoLock(static_cast<double>(value), state);
    }

private:
    static bool fits(qint64 value, State state)
    {
        return state != valid || (value >= least && value <= most);
    }

    Double m_number;
};

/// A boolean, or bits of a byte.
class Boolean
{
public:
    Boolean(const Root &root, const QString &url) : m_number(root, url) {}

    bool isValid() const { return m_number.isValid(); }
    bool read(bool &value, State &state) const
    {
        double number = 0;
        const bool isRead = m_number.read(number, state);
        value = isRead ? number > 0 : value;
        return isRead;
    }
    bool readNoLock(bool &value, State &state) const
    {
        double number = 0;
        const bool isRead = m_number.readNoLock(number, state);
        value = isRead ? number > 0 : value;
        return isRead;
    }
    bool write(bool value, State state = valid) const { return m_number.write(value ? 1 : 0, state); }
    bool writeNoLock(bool value, State state = valid) const
    {
        return m_number.writeNoLock(value ? 1 : 0, state);
    }

private:
    Double m_number;
};

/// What a double does not hold: an integer of 64 bits, or a text.
template <class Content>
class Exact
{
public:
    Exact(const Root &root, const QString &url)
    {
        const auto leaf = root ? root->getLeafProcessDataValue(url) : ProcessDataValueSharedPointer();
        if (leaf && leaf->isObjectValid()) {
            m_leaf = leaf;
        }
    }

    bool isValid() const { return !m_leaf.isNull(); }
    bool read(Content &value, State &state) const
    {
        ProcessValue found(ProcessDataDefinitions::PROCESS_VALUE_ERROR_TYPE_NO_VALID_INPUT_VALUE);
        if (isValid()) {
            m_leaf->getValue(found, true);
        }
        return take(found, value, state);
    }
    bool readNoLock(Content &value, State &state) const
    {
        ProcessValue found(ProcessDataDefinitions::PROCESS_VALUE_ERROR_TYPE_NO_VALID_INPUT_VALUE);
        if (isValid()) {
            m_leaf->getValueNoLock(found, true);
        }
        return take(found, value, state);
    }
    bool write(const Content &value, State state = valid) const
    {
        return isValid() && m_leaf->setValue(asProcessValue(value, state));
    }
    bool writeNoLock(const Content &value, State state = valid) const
    {
        return isValid() && m_leaf->setValueNoLock(asProcessValue(value, state));
    }

private:
    static bool take(const ProcessValue &found, Content &value, State &state)
    {
        if (!found.getValue().isValid()) {
            return false;
        }
        value = found.getValue().value<Content>();
        state = found.getErrorType();
        return true;
    }
    static ProcessValue asProcessValue(const Content &value, State state)
    {
        return state == valid ? ProcessValue(QVariant::fromValue(value), state)
                              : ProcessValue(state);
    }

    ProcessDataValueSharedPointer m_leaf;
};

} // namespace leaf

namespace nodes {

struct All_tank
{
    explicit All_tank(const ::tank::Root &tesselRoot)
        : level(tesselRoot, QStringLiteral("tank/level"))
        , temperature(tesselRoot, QStringLiteral("tank/temperature"))
    {
    }

    /// `tank/level`, double in m.
    ::tank::leaf::Double level;
    /// `tank/temperature`, float in °C.
    ::tank::leaf::Double temperature;
};

struct All
{
    explicit All(const ::tank::Root &tesselRoot)
        : tank(tesselRoot)
    {
    }

    ::tank::nodes::All_tank tank;
};

} // namespace nodes

/// All values of a tree, each looked up once. If the tree or its region does not fit, none of them is valid, and
/// getProblem() says why.
class Values
{
public:
    explicit Values(const Root &root)
        : m_problem(problemOf(root)), m_all(m_problem.isEmpty() ? root : Root())
    {
    }

    bool isValid() const { return m_problem.isEmpty(); }
    const QString &getProblem() const { return m_problem; }
    const nodes::All *operator->() const { return &m_all; }

private:
    QString m_problem;
    nodes::All m_all;
};

} // namespace tank
