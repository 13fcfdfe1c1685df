#include "AccessTree.h"
#include "Companion/SelectorUrlArrayIndex.h"
#include "Configuration/ConfigurationAndProcessDataParser.h"
#include "Configuration/ConfigurationAndProcessDataTools.h"
#include "Configuration/ConfigurationDataValue.h"
#include "FuzzTarget.h"
#include "TableWrites.h"
#include "ToolkitLeak.h"

#include <QJsonArray>
#include <QVector>

// URLs, property paths and values from anybody read and write one tree: what was changed is read
// back, and what was refused leaves the tree as it was.
//
// An input is lines by three: a URL, a property path, and a value, which is JSON or else plain text.

namespace {

using Base = ConfigurationAndProcessDataBase;
using Element = Base::BaseClassSharedPointer;
using Tools = ConfigurationAndProcessDataTools;

// More writes than these find nothing that the first ones did not.
const int mostSteps = 4;

struct Step
{
    QString url;
    QString path;
    QVariant value;
};

QVariant readValue(const QByteArray &text)
{
    const QByteArray json = '[' + text + ']';
    const ToolkitLeak leak(json);
    const QJsonArray list = QJsonDocument::fromJson(json).array();
    return list.size() == 1 ? list.first().toVariant() : QVariant(QString::fromUtf8(text));
}

QVector<Step> readSteps(const QByteArray &input)
{
    const QList<QByteArray> lines = input.split('\n');
    QVector<Step> steps;
    for (int i = 0; i < lines.size() && steps.size() < mostSteps; i += 3) {
        steps.append({QString::fromUtf8(lines.at(i)), QString::fromUtf8(lines.value(i + 1)),
                      readValue(lines.value(i + 2))});
    }
    return steps;
}

/// Everything that the tree says.
QByteArray frame(const Element &root)
{
    QByteArray text;
    require(
        ConfigurationAndProcessDataParser().frameToByteArray(root, text, QJsonDocument::Compact),
        "a tree can be framed");
    return text;
}

void checkStatus(Base::SetValueStatus status, const QVariant &value, const QVariant &now,
                 bool isSameTree)
{
    if (status == Base::SetValueChanged) {
        require(now == value && now.isValid() == value.isValid(), "what was changed is read back");
        return;
    }
    require(isSameTree, "a write that changed nothing leaves the tree alone");
    require(status != Base::SetValueUnchanged || now == value, "an unchanged value stood there");
}

void checkReading(const Element &root, const Step &step)
{
    const Element leaf = root->getLeaf(step.url);
    require(root->isUrlValid(step.url) == !leaf.isNull(), "a valid URL leads to an element");
    const QStringList pieces = step.url.split('/', Qt::SkipEmptyParts);
    require(root->getLeaf(pieces) == leaf && root->isUrlValid(pieces) == !leaf.isNull(),
            "a URL in pieces leads where the whole one does");
    require(Tools::extractProperty(step.url, step.path, root)
                == (leaf.isNull() ? QVariant() : leaf->getProperty(step.path)),
            "a property is the same by URL and by element");
    if (!leaf.isNull()) {
        require(leaf->hasProperty(step.path) == leaf->getProperty(step.path).isValid(),
                "a property that is there can be read");
    }
    Tools::getDataType(step.url, root);
    Tools::extractPropertyStringList(step.url, step.path, root);
    Tools::isNoInputValueIndicatorSet(step.url, root);
}

void checkTypedReading(const Element &root, const Step &step)
{
    const QVariant value = Tools::extractConfigValue(step.url, root);
    int integer = 7;
    const bool isInteger = Tools::extractConfigValueInt(step.url, root, integer);
    require(integer == value.toInt() && (isInteger || integer == 0), "an integer is the value's");
    unsigned int natural = 7;
    const bool isNatural = Tools::extractConfigValueUint(step.url, root, natural);
    require(natural == value.toUInt() && (isNatural || natural == 0), "so is one without sign");
    double number = 7;
    const bool isNumber = Tools::extractConfigValueDouble(step.url, root, number);
    require(isNumber || number == 0, "what is no number reads as 0");
    QString text;
    Tools::extractConfigValueQString(step.url, root, text);
    require(text == value.toString(), "a text is the value's");
    QVariant same;
    require(Tools::extractConfigValueQVariant(step.url, root, same) == !value.isNull(),
            "a value is told by whether it is null");
    QVariant entry;
    Tools::extractConfigValueFromMap(step.url, step.path, root, entry);
}

/// A pattern from anybody may keep the toolkit's matching busy for as long as it likes.
bool isPattern(const QString &path)
{
    return path.startsWith("regularExpression");
}

void checkPropertyWrite(const Element &root, const Step &step)
{
    if (isPattern(step.path)) {
        return;
    }
    const QByteArray before = frame(root);
    const auto status = Tools::setPropertyWithStatus(step.url, step.path, root, step.value);
    const auto leaf = root->getLeafConfigurationData(step.url);
    require(!leaf.isNull() || status == Base::SetValueTargetMissing,
            "a property is written to a leaf");
    checkStatus(status, step.value, leaf.isNull() ? QVariant() : leaf->getProperty(step.path),
                before == frame(root));
    if (status <= Base::SetValueUnchanged) {
        require(Tools::setProperty(step.url, step.path, root, step.value),
                "a write can be repeated");
    }
}

/// A list in a cell makes the table one of three dimensions, in which no cell has two indices.
bool isReadBack(const Step &step)
{
    SelectorUrlArrayIndex index;
    QString rest;
    SelectorUrlArrayIndex::splitUrlAndArrayIndex(step.url, index, rest);
    return !index.isValid() || step.value.type() != QVariant::List;
}

void checkValueWrite(const Element &root, const Step &step)
{
    const QByteArray before = frame(root);
    const auto status = Tools::setConfigValueWithStatus(step.url, root, step.value);
    const bool isSameTree = before == frame(root);
    if (isReadBack(step) || status != Base::SetValueChanged) {
        checkStatus(status, step.value, Tools::extractConfigValue(step.url, root), isSameTree);
    }
    Tools::setConfigValueNoSignalEmit(step.url, root, step.value);
}

} // namespace

void runInput(const QByteArray &input)
{
    static const QByteArray description = accessDescription();
    const Element root = ConfigurationAndProcessDataParser().parseFromByteArray(
        description, QStringLiteral("config.json"));
    require(!root.isNull(), "the tree of this target parses");
    for (const Step &step : readSteps(input)) {
        checkReading(root, step);
        checkTypedReading(root, step);
        checkPropertyWrite(root, step);
        checkValueWrite(root, step);
        checkTable(root, step.url, step.value);
    }
}
