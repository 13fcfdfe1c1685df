#include "Access/ProcessBulkReader.h"
#include "Access/ProcessDataGuards.h"
#include "Access/ProcessDataSnapshot.h"
#include "Parts.h"
#include "ProcessData/Linux/ProcessDataValue.h"
#include "ProcessDataManagement/ProcessDataManager.h"
#include "Stopwatch.h"

#include <QFileInfo>

#include <memory>
#include <vector>

namespace {

using Manager = ProcessDataManager;
using Root = Manager::BaseClassSharedPointer;
using Leaves = QVector<ProcessDataValueSharedPointer>;

Root made(Manager &manager, const QString &path, Manager::InitTypeSharedMemory type,
          const QString &keyPrefix = {})
{
    const Root root = QFileInfo(path).isDir()
                          ? manager.createProcessDataFromDir(keyPrefix, path, type)
                          : manager.createProcessDataFromFile(path, type);
    require(!root.isNull() && manager.isBufferValid(),
            QStringLiteral("no region for %1").arg(path));
    return root;
}

void publish(Manager &manager, const Leaves &leaves, const QVariant &value)
{
    ProcessDataWriteGuard guard(manager);
    require(guard.isLocked(), QStringLiteral("no lock for writing"));
    const ProcessValue written(value, ProcessDataDefinitions::PROCESS_VALUE_ERROR_TYPE_VALID);
    for (const auto &leaf : leaves) {
        require(leaf->setValueNoLock(written), QStringLiteral("a value cannot be written"));
    }
    require(guard.publish(), QStringLiteral("a set cannot be published"));
}

Leaves leavesOf(const Root &root, const QStringList &urls)
{
    Leaves leaves;
    leaves.reserve(urls.size());
    for (const QString &url : urls) {
        leaves.append(root->getLeafProcessDataValue(url));
    }
    return leaves;
}

void readBulk(Manager &manager, const Root &root, const QStringList &urls, Stopwatch &watch)
{
    ProcessBulkReader reader(&manager, root, urls);
    require(reader.isComplete(), QStringLiteral("a leaf cannot be read in bulk"));
    watch.tell("bulkReader");
    const auto count = static_cast<std::size_t>(reader.getCount());
    std::vector<double> values(count);
    std::vector<ProcessDataDefinitions::ErrorTypes> states(count);
    require(reader.read(values.data(), states.data()), QStringLiteral("no set in bulk"));
    watch.tell("bulkRead");
}

void compareSnapshots(Manager &manager, const Leaves &leaves, Stopwatch &watch)
{
    ProcessDataSnapshot before;
    ProcessDataSnapshot after;
    require(before.take(manager), QStringLiteral("no snapshot"));
    watch.tell("snapshot");
    publish(manager, leaves, 0);
    require(after.take(manager), QStringLiteral("no snapshot"));
    watch.restart();
    require(after.getDifferent(leaves, before).size() == leaves.size(),
            QStringLiteral("a change is not in the snapshot"));
    watch.tell("getDifferent");
}

} // namespace

void Parts::region(const QStringList &words)
{
    Stopwatch watch;
    Manager manager;
    const Root root = made(manager, words.constFirst(), Manager::InitTypeSharedMemoryCreate,
                           words.value(1));
    watch.tell("create");
    QStringList urls;
    QString prefix;
    root->collectUrlsOfElements(urls, prefix);
    watch.restart();
    const Leaves leaves = leavesOf(root, urls);
    watch.tell("getLeafProcessDataValue");
    publish(manager, leaves, 1);
    watch.tell("publish");
    ProcessValue value(ProcessDataDefinitions::PROCESS_VALUE_ERROR_TYPE_VALID);
    require(readConsistently(manager,
                             [&] {
                                 for (const auto &leaf : leaves) {
                                     leaf->getValueNoLock(value);
                                 }
                             }),
            QStringLiteral("no consistent set"));
    watch.tell("getValueNoLock");
    readBulk(manager, root, urls, watch);
    compareSnapshots(manager, leaves, watch);
    Manager attached;
    made(attached, words.constFirst(), Manager::InitTypeSharedMemoryAttach);
    watch.tell("attach");
}

void Parts::slotText(const QStringList &words)
{
    Stopwatch watch;
    Manager manager;
    const Root root = made(manager, words.constFirst(), Manager::InitTypeSharedMemoryCreate);
    watch.tell("create");
    const auto leaf = root->getLeafProcessDataValue(QStringLiteral("text"));
    require(!leaf.isNull(), QStringLiteral("no leaf 'text'"));
    const int bytes = leaf->getProperty(QStringLiteral("sizeValue")).toInt();
    const QString text(bytes / 2 - 1, QLatin1Char('x'));
    watch.restart();
    publish(manager, {leaf}, text);
    watch.tell("publish");
    ProcessValue value(ProcessDataDefinitions::PROCESS_VALUE_ERROR_TYPE_VALID);
    leaf->getValue(value);
    watch.tell("getValue");
    require(value.getValue().toString() == text, QStringLiteral("the text is another one"));
    publish(manager, {leaf}, QStringLiteral("short"));
    watch.tell("publishNext");
}

void Parts::regions(const QStringList &words)
{
    const QStringList files = words.mid(1);
    require(words.constFirst().toInt() == files.size(),
            QStringLiteral("wants a file for each region"));
    // Behind the attached ones: whoever attaches leaves before the creator.
    std::vector<std::unique_ptr<Manager>> creators;
    std::vector<std::unique_ptr<Manager>> attached;
    std::vector<Leaves> leaves;
    Stopwatch watch;
    for (const QString &file : files) {
        creators.push_back(std::make_unique<Manager>());
        const Root root = made(*creators.back(), file, Manager::InitTypeSharedMemoryCreate);
        leaves.push_back({root->getLeafProcessDataValue(QStringLiteral("group0/leaf0"))});
    }
    watch.tell("create");
    for (const QString &file : files) {
        attached.push_back(std::make_unique<Manager>());
        made(*attached.back(), file, Manager::InitTypeSharedMemoryAttach);
    }
    watch.tell("attach");
    for (int set = 0; set < 100; ++set) {
        for (std::size_t region = 0; region < creators.size(); ++region) {
            publish(*creators[region], leaves[region], set);
        }
    }
    watch.tell("publish100");
    ProcessDataSnapshot snapshot;
    for (int set = 0; set < 100; ++set) {
        for (const auto &manager : attached) {
            require(snapshot.take(*manager), QStringLiteral("no snapshot"));
        }
    }
    watch.tell("snapshot100");
    // All locked at once, from the first to the last.
    for (const auto &manager : attached) {
        require(manager->lockReadBuffer(), QStringLiteral("no lock for reading"));
    }
    for (const auto &manager : attached) {
        bool repeat = false;
        require(manager->unlockReadBuffer(repeat) && !repeat, QStringLiteral("a torn set"));
    }
    watch.tell("lockAll");
    attached.clear();
    creators.clear();
    watch.tell("release");
}
