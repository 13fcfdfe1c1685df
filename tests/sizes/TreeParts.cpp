#include "Configuration/ConfigurationAndProcessDataParser.h"
#include "Configuration/ConfigurationAndProcessDataTools.h"
#include "Configuration/ConfigurationArray2dDataTypeWrapper.h"
#include "Configuration/ConfigurationDataAndProcessDescriptionAccess.h"
#include "Parts.h"
#include "ProcessDataManagement/ProcessDataBuilder.h"
#include "Stopwatch.h"

#include <QFileInfo>

namespace {

using Root = ConfigurationAndProcessDataBase::BaseClassSharedPointer;
using Tools = ConfigurationAndProcessDataTools;

Root parsed(const QString &path)
{
    const QFileInfo entry(path);
    Root root;
    if (entry.isDir()) {
        ConfigurationDataAndProcessDescriptionAccess::parseConfigDir(root, entry);
    } else {
        root = ConfigurationAndProcessDataParser().parseFromFile(path);
    }
    require(!root.isNull(), QStringLiteral("%1 does not parse").arg(path));
    return root;
}

QByteArray framed(const Root &root)
{
    QByteArray text;
    require(
        ConfigurationAndProcessDataParser().frameToByteArray(root, text, QJsonDocument::Compact),
        QStringLiteral("the tree cannot be framed"));
    return text;
}

void buildDirectory(const QString &path, const QString &keyPrefix)
{
    QString key;
    require(ProcessDataBuilder().buildProcessDataFromDir(keyPrefix, path, key),
            QStringLiteral("%1 cannot be built").arg(path));
}

} // namespace

void Parts::tree(const QStringList &words)
{
    Stopwatch watch;
    Root root = parsed(words.constFirst());
    watch.tell("parse");
    ConfigurationAndProcessDataBase::ListElements leaves;
    root->collectElements(leaves, true);
    watch.tell("collectElements");
    QStringList urls;
    QString prefix;
    root->collectUrlsOfElements(urls, prefix);
    watch.tell("collectUrlsOfElements");
    for (const QString &url : std::as_const(urls)) {
        require(!root->getLeaf(url).isNull(), QStringLiteral("no leaf at %1").arg(url));
    }
    watch.tell("getLeaf");
    require(urls.size() == leaves.size(), QStringLiteral("leaves without a URL"));
    leaves.clear();
    const QByteArray text = framed(root);
    watch.tell("frameToByteArray");
    root.reset();
    watch.tell("release");
}

void Parts::text(const QStringList &words)
{
    const QString url = QStringLiteral("text");
    Stopwatch watch;
    const Root root = parsed(words.constFirst());
    watch.tell("parse");
    QString value = Tools::extractConfigValue(url, root).toString();
    watch.tell("extractConfigValue");
    require(!value.isEmpty(), QStringLiteral("no text"));
    value[0] = value[0] == QLatin1Char('a') ? QLatin1Char('b') : QLatin1Char('a');
    require(Tools::setConfigValueWithStatus(url, root, value)
                == ConfigurationAndProcessDataBase::SetValueChanged,
            QStringLiteral("the text cannot be changed"));
    watch.tell("setConfigValue");
    framed(root);
    watch.tell("frameToByteArray");
}

void Parts::table(const QStringList &words)
{
    const QString url = QStringLiteral("table");
    Stopwatch watch;
    const Root root = parsed(words.constFirst());
    watch.tell("parse");
    Array2dDataTypeWrapper cells(root, url);
    watch.tell("load");
    const unsigned int rows = cells.getNumberOfRows();
    for (unsigned int row = 0; row < rows; ++row) {
        require(cells.getRowValues(row).size() == 2, QStringLiteral("a row is not two columns"));
    }
    watch.tell("getRowValues");
    for (unsigned int row = 0; row < rows; ++row) {
        require(cells.addNewRow(), QStringLiteral("the table does not grow"));
    }
    watch.tell("addNewRow");
    const QString cell = QStringLiteral("table#%1,0").arg(rows - 1);
    require(Tools::setConfigValueWithStatus(cell, root, -1)
                == ConfigurationAndProcessDataBase::SetValueChanged,
            QStringLiteral("the cell cannot be changed"));
    watch.tell("setConfigValue");
    framed(root);
    watch.tell("frameToByteArray");
}

void Parts::build(const QStringList &words)
{
    Stopwatch watch;
    buildDirectory(words.constFirst(), words.value(1));
    watch.tell("firstBuild");
    buildDirectory(words.constFirst(), words.value(1));
    watch.tell("secondBuild");
}

void Parts::planted(const QStringList &words)
{
    const auto count = words.constFirst().toULongLong();
    Stopwatch watch;
    volatile quint64 sum = 0;
    for (quint64 outer = 0; outer < count; ++outer) {
        for (quint64 inner = 0; inner < count; ++inner) {
            sum = sum + inner;
        }
    }
    watch.tell("planted");
}
