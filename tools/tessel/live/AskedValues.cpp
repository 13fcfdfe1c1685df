#include "live/AskedValues.h"

#include "Companion/ConfigurationAndProcessDataDefinitions.h"
#include "leaves/NumberLimits.h"
#include "text/Output.h"
#include "values/StateName.h"
#include "values/ValueText.h"

#include <QJsonObject>

namespace {

using Definitions = ConfigurationAndProcessDataDefinitions;
using ProcessDataDefinitions::ErrorTypes;
using ProcessDataDefinitions::PROCESS_VALUE_ERROR_TYPE_VALID;

[[noreturn]] void refuse(const QString &url, const QString &reason)
{
    throw Failure{ExitCode::Refused, QStringLiteral("'%1': %2").arg(url, reason)};
}

void checkLimits(const Leaf &leaf, const LeafSlot &slot, QVariant value)
{
    const auto property = [&leaf](const QString &key) { return leaf.element->getProperty(key); };
    if (!value.convert(slot.metaType)) {
        return;
    }
    const QString problem = limitProblem(value, property(Definitions::getKeyDataPropertyMinLimit()),
                                         property(Definitions::getKeyDataPropertyMaxLimit()));
    if (!problem.isEmpty()) {
        refuse(leaf.url, problem + QStringLiteral("; --no-limits writes it all the same"));
    }
}

/// The state that a member of an object names, by its number or its name.
ErrorTypes namedState(const QString &url, const QJsonValue &state)
{
    if (!state.isString() && !state.isDouble()) {
        refuse(url, QStringLiteral("a state is a number or a name"));
    }
    return stateFromText(state.toVariant().toString());
}

/// The text that a person would type for a number, a truth value or a text.
QString typedText(const Leaf &leaf, const QJsonValue &value)
{
    const bool isText = slotOf(leaf).metaType == QMetaType::QString;
    if (value.isNull() || value.isArray() || value.isObject()) {
        refuse(leaf.url, QStringLiteral("a number, a text, true, false or {\"state\": NAME} is a "
                                        "value"));
    }
    if (isText && !value.isString()) {
        refuse(leaf.url, QStringLiteral("a string takes a text in quotation marks"));
    }
    const QVariant content = value.toVariant();
    if (content.toString().contains(QChar::Null)) {
        refuse(leaf.url, QStringLiteral("a text ends where its first zero character is"));
    }
    // Whole numbers keep all their digits.
    return content.userType() == QMetaType::Double
               ? valueText({content, PROCESS_VALUE_ERROR_TYPE_VALID})
               : content.toString();
}

} // namespace

AskedValues::AskedValues(const DescriptionSource &description, Limits limits)
    : m_description(description)
    , m_limits(limits)
{
}

void AskedValues::add(const QString &url, const QString &text)
{
    tryToAdd(url, [&](const Leaf &leaf) { return checkedValue(leaf, text); });
}

void AskedValues::add(const QString &url, const QJsonValue &value)
{
    tryToAdd(url, [&](const Leaf &leaf) { return fromJson(leaf, value); });
}

void AskedValues::addPrinted(const QJsonValue &object)
{
    const QJsonObject members = object.toObject();
    const QJsonValue state = members.value(QStringLiteral("state"));
    const QJsonValue url = members.value(QStringLiteral("url"));
    if (!url.isString()) {
        m_refusals.append({ExitCode::InputOutputFile,
                           QStringLiteral("entry %1 of the list is no object with a \"url\"")
                               .arg(m_refusals.size() + m_writes.size() + 1)});
        return;
    }
    tryToAdd(url.toString(), [&](const Leaf &leaf) {
        if (!state.isUndefined() && namedState(leaf.url, state) != PROCESS_VALUE_ERROR_TYPE_VALID) {
            return stateFor(leaf, namedState(leaf.url, state));
        }
        return fromJson(leaf, members.value(QStringLiteral("value")));
    });
}

template <class Make>
void AskedValues::tryToAdd(const QString &url, const Make &make)
{
    try {
        const Leaf leaf = writableLeafAt(m_description, url);
        if (m_given.contains(leaf.element.data())) {
            throw Failure{ExitCode::WrongUse, QStringLiteral("'%1' is given twice").arg(leaf.url)};
        }
        m_writes.append({leaf, make(leaf)});
        m_given.insert(leaf.element.data());
    } catch (const Failure &failure) {
        m_refusals.append(failure);
    }
}

ProcessValue AskedValues::checkedValue(const Leaf &leaf, const QString &text) const
{
    const LeafSlot slot = slotOf(leaf);
    const QVariant value = valueFromText(text, slot, leaf.url);
    if (m_limits == Limits::Checked) {
        checkLimits(leaf, slot, value);
    }
    return {value, PROCESS_VALUE_ERROR_TYPE_VALID};
}

ProcessValue AskedValues::fromJson(const Leaf &leaf, const QJsonValue &value) const
{
    const QJsonObject object = value.toObject();
    if (object.keys() == QStringList(QStringLiteral("state"))) {
        return stateFor(leaf, namedState(leaf.url, object.value(QStringLiteral("state"))));
    }
    return checkedValue(leaf, typedText(leaf, value));
}

QVector<LeafWrite> AskedValues::takeAll() const
{
    if (m_refusals.isEmpty()) {
        return m_writes;
    }
    if (m_refusals.size() == 1) {
        throw m_refusals.constFirst();
    }
    for (const auto &refusal : m_refusals) {
        writeErrorLine(QStringLiteral("tessel: ") + refusal.reason);
    }
    throw Failure{m_refusals.constFirst().code,
                  QStringLiteral("%1 of %2 values are refused, and nothing is written")
                      .arg(m_refusals.size())
                      .arg(m_refusals.size() + m_writes.size())};
}

Leaf writableLeafAt(const DescriptionSource &description, const QString &url)
{
    const Leaf leaf = description.leafAt(url);
    if (slotOf(leaf).isReadOnly) {
        throw Failure{ExitCode::Refused,
                      QStringLiteral("'%1' is read-only; only the process that created the region "
                                     "writes it")
                          .arg(leaf.url)};
    }
    return leaf;
}

ProcessValue stateFor(const Leaf &leaf, ErrorTypes state)
{
    const LeafSlot slot = slotOf(leaf);
    if (state == PROCESS_VALUE_ERROR_TYPE_VALID) {
        refuse(leaf.url, QStringLiteral("'valid' is no error; give a value instead"));
    }
    if (!slot.carriesErrorState()) {
        refuse(leaf.url,
               QStringLiteral("a %1 without metadata cannot carry an error state").arg(slot.type));
    }
    return {state};
}
