#include "descriptions/DirectoryBuild.h"

#include "Companion/ConfigurationAndProcessDataDefinitions.h"
#include "Configuration/ConfigurationAndProcessDataTreeNode.h"
#include "ProcessDataManagement/ProcessDataBuilder.h"
#include "descriptions/DescriptionFile.h"
#include "descriptions/FormerTexts.h"
#include "text/LogCollector.h"

#include <algorithm>

namespace {

using Definitions = ConfigurationAndProcessDataDefinitions;
using Records = QVector<ProcessDataBuilder::SharedMemoryData>;

QString withReasons(const QString &text, const QString &reasons)
{
    return reasons.isEmpty() ? text : QStringLiteral("%1: %2").arg(text, reasons);
}

Failure failure(const DescriptionFolder &folder, ExitCode code, const QString &reason)
{
    return {code, QStringLiteral("%1: %2").arg(folder.path(), reason)};
}

bool isWritable(const QString &filePath)
{
    const QFileInfo file(filePath);
    // A file is replaced by a new one beside it.
    const QFileInfo place(QFileInfo(file.canonicalFilePath()).path());
    return file.isWritable() && place.isWritable();
}

/// The library builds without a file that it cannot parse and those behind it, and calls that a
/// success.
Failure leftOutFailure(const DescriptionFolder &folder, int count)
{
    const QString file = folder.filePaths().at(count);
    const int more = folder.files().size() - count - 1;
    const QString others = more == 0 ? QString()
                                     : QStringLiteral(" and the %1 behind it").arg(more);
    const bool isParsed = !ConfigurationAndProcessDataParser().parseFromFile(file).isNull();
    const QString reason = isParsed ? LogCollector::takeReasons() : parseProblem(file);
    return failure(
        folder, ExitCode::InputOutputFile,
        withReasons(QStringLiteral("%1%2 left out").arg(folder.relativePath(file), others),
                    reason));
}

/// Sets size and key in the trees as the build does. Gives the number of those that took them.
int settle(const ProcessDataBuilder &builder, Records &records, int size, const QString &key)
{
    int settled = 0;
    while (settled < records.size()
           && builder.setSizeAndKeyFromSharedMemory(size, key, records[settled])) {
        ++settled;
    }
    return settled;
}

/// Trouble that the files show only together, such as buffers of both kinds.
std::optional<Failure> disagreement(const DescriptionFolder &folder)
{
    try {
        folder.parse();
    } catch (const Failure &failure) {
        return failure;
    }
    return std::nullopt;
}

/// What a build leaves as it is: whether the buffer is double, in which all files have to agree.
std::optional<Failure> differingBuffer(const DescriptionFolder &folder, const Records &records)
{
    const QString property = Definitions::getKeyDataPropertyDoubleBuffer();
    const bool isDouble = records.first().root->getProperty(property).toBool();
    for (const auto &record : records) {
        const QVariant value = record.root->getProperty(property);
        if (!value.canConvert(QMetaType::Bool) || value.toBool() != isDouble) {
            return failure(folder, ExitCode::InputOutputFile,
                           QStringLiteral("its files would not describe one memory after a build: "
                                          "'%1' of %2 is missing, no boolean, or another one than "
                                          "in %3")
                               .arg(property, folder.relativePath(record.filePath),
                                    folder.relativePath(records.first().filePath)));
        }
    }
    return std::nullopt;
}

using Node = ConfigurationAndProcessDataTreeNode;

QSharedPointer<Node> newNode(QJsonObject properties)
{
    properties.insert(Definitions::getKeyDataPropertyType(), Definitions::getKeyDataTypeTreeNode());
    return QSharedPointer<Node>::create(properties, nullptr);
}

/// Hangs the tree of a file where the tree of the folder has it: below the names of the folders on the way, under
/// the file's name up to its first dot.
void hangIn(const QSharedPointer<Node> &root, const QString &relativePath,
            const ConfigurationAndProcessDataBase::BaseClassSharedPointer &tree)
{
    QStringList names = relativePath.split(QLatin1Char('/'));
    const QString name = names.takeLast().section(QLatin1Char('.'), 0, 0);
    QSharedPointer<Node> node = root;
    for (const QString &folder : qAsConst(names)) {
        auto next = qSharedPointerDynamicCast<Node>(node->getChildMap().value(folder));
        if (!next) {
            next = newNode({});
            node->addElement(folder, next);
        }
        node = next;
    }
    node->addElement(name, tree);
}

/// Whether a file has the size already that a build gives to all of them.
bool hasSize(const ProcessDataBuilder::SharedMemoryData &record, int size)
{
    return record.root->getProperty(Definitions::getKeyDataPropertySizeOfSharedMemory()) == size;
}

Failure notUpToDate(const DescriptionFolder &folder, const QStringList &files,
                    const QString &reasons)
{
    const bool isAllowed = std::all_of(files.cbegin(), files.cend(), isWritable);
    QStringList names;
    for (const auto &file : files) {
        names.append(folder.relativePath(file));
    }
    const QString text = names.join(QStringLiteral(", "))
                         + QLatin1String(" not up to date after the build");
    return failure(folder, isAllowed ? ExitCode::InputOutputFile : ExitCode::NoAccess,
                   withReasons(text, reasons));
}

/// What hinders a folder that was just built from being up to date.
std::optional<Failure> remainingTrouble(const DescriptionFolder &folder, const DirectoryBuild &rest,
                                        bool isBuilt, const QString &reasons)
{
    if (!rest.rewritten.isEmpty()) {
        return notUpToDate(folder, rest.rewritten, reasons);
    }
    if (rest.failure) {
        return rest.failure;
    }
    if (!isBuilt) {
        return failure(folder, ExitCode::InputOutputFile,
                       withReasons(QStringLiteral("cannot be built"), reasons));
    }
    return std::nullopt;
}

} // namespace

LaidOutFolder layOutFolder(const DescriptionFolder &folder)
{
    LogCollector::takeReasons();
    Records records;
    int size = 0;
    if (!ProcessDataBuilder().updateOffsetFromDir(folder.files(), size, records)) {
        throw failure(folder, ExitCode::InputOutputFile,
                      withReasons(QStringLiteral("cannot be built"), LogCollector::takeReasons()));
    }
    if (records.size() < folder.files().size()) {
        throw leftOutFailure(folder, records.size());
    }
    const auto property = [&records](const QString &key) {
        return QJsonValue::fromVariant(records.constFirst().root->getProperty(key));
    };
    const auto root = newNode({{Definitions::getKeyDataPropertySizeOfSharedMemory(), size},
                               {Definitions::getStrKeyProcessDataMemory(),
                                property(Definitions::getStrKeyProcessDataMemory())},
                               {Definitions::getKeyDataPropertyDoubleBuffer(),
                                property(Definitions::getKeyDataPropertyDoubleBuffer())}});
    LaidOutFolder laidOut{root};
    for (const auto &record : qAsConst(records)) {
        laidOut.isBuilt = laidOut.isBuilt && !record.modified && hasSize(record, size);
        hangIn(root, folder.relativePath(record.filePath), record.root);
    }
    return laidOut;
}

DirectoryBuild planFolder(const DescriptionFolder &folder, const QString &keyPrefix)
{
    LogCollector::takeReasons();
    const ProcessDataBuilder builder;
    DirectoryBuild plan;
    Records records;
    if (!builder.updateOffsetFromDir(folder.files(), plan.bufferSize, records)
        || !builder.getSharedMemoryKeyForDir(keyPrefix, folder.absolutePath(), records, plan.key)) {
        plan.failure = failure(
            folder, ExitCode::InputOutputFile,
            withReasons(QStringLiteral("cannot be built"), LogCollector::takeReasons()));
        return plan;
    }
    plan.isDoubleBuffered =
        records.first().root->getProperty(Definitions::getKeyDataPropertyDoubleBuffer()).toBool();
    plan.isKeyNew = records.first().root->getProperty(Definitions::getStrKeyProcessDataMemory())
                    != plan.key;
    const int settled = settle(builder, records, plan.bufferSize, plan.key);
    for (int i = 0; i < settled; ++i) {
        if (records[i].modified) {
            plan.rewritten.append(records[i].filePath);
        }
    }
    if (settled < folder.files().size()) {
        plan.failure = leftOutFailure(folder, settled);
    } else if (plan.rewritten.isEmpty()) {
        plan.failure = disagreement(folder);
    } else {
        plan.remaining = differingBuffer(folder, records);
    }
    return plan;
}

DirectoryBuild buildFolder(const DescriptionFolder &folder, const QString &keyPrefix)
{
    const FormerTexts former(folder.filePaths());
    LogCollector::takeReasons();
    QString key;
    const bool isBuilt = ProcessDataBuilder().buildProcessDataFromDir(keyPrefix,
                                                                      folder.absolutePath(), key);
    const QString reasons = LogCollector::takeReasons();
    const QStringList rewritten = former.rewritten();
    const FormerTexts::Restoration restoration = former.restoreCutOff();
    const QString restored = restorationText(restoration);

    // The library's result does not tell of every file: the files themselves do.
    DirectoryBuild build = planFolder(folder, keyPrefix);
    build.failure = restored.isEmpty() ? remainingTrouble(folder, build, isBuilt, reasons)
                                       : failure(folder, ExitCode::InputOutputFile,
                                                 withReasons(restored, reasons));
    build.isKeyNew = false;
    build.rewritten.clear();
    for (const auto &file : rewritten) {
        if (!restoration.restored.contains(file) && !restoration.lost.contains(file)) {
            build.rewritten.append(file);
        }
    }
    return build;
}
