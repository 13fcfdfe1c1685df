#include "Configuration/ConfigurationAndProcessDataTools.h"
#include "ProcessDataManagement/ProcessDataBuilder.h"
#include "integration/DeviceChanges.h"
#include "support/ChildProcess.h"
#include "support/LogCapture.h"

#include <algorithm>

namespace {

using Access = ConfigurationDataAndProcessDescriptionAccess;
using Definitions = ConfigurationAndProcessDataDefinitions;
using Root = ConfigurationAndProcessDataBase::BaseClassSharedPointer;
using Tools = ConfigurationAndProcessDataTools;

constexpr int rounds = 10;

QStringList urlsOf(const Root &root)
{
    QStringList urls;
    QString prefix;
    root->collectUrlsOfElements(urls, prefix);
    urls.sort();
    return urls;
}

bool hasNullChild(const Root &element)
{
    const auto children = element->getChildMap();
    return std::any_of(children.cbegin(), children.cend(),
                       [](const Root &child) { return child.isNull() || hasNullChild(child); });
}

/// What a device does in a round of its life: builds its memory, changes its configuration and
/// hands it back.
bool serve(const DescriptionDirectory &directory, const QString &name)
{
    QString key = name;
    bool doubleBuffer = false;
    int size = 0;
    const Root root = readDevice(directory);
    if (root.isNull() || !applyChanges(deviceChanges(name), root)
        || !ProcessDataBuilder().buildProcessDataFromDir("tessel", directory.path(), key)
        || !writeDeviceBack(directory, root)) {
        return false;
    }
    const Root written = readDevice(directory);
    return !written.isNull() && Tools::extractConfigValue("device/location", written) == name
           && Access::getSharedMemoryInfoFromDir(QFileInfo(directory.path()), doubleBuffer, size,
                                                 key)
           && key == name && size == 552 && doubleBuffer;
}

/// The directory is what all rounds make of the example: the name of the last one is its location
/// and the key of its memory.
void compareAll(const DescriptionDirectory &directory, const QString &name)
{
    const DescriptionDirectory example("device");
    QVERIFY(example.copy(QStringLiteral(EXAMPLE_DEVICE)));
    DescriptionDirectory::Snapshot files = example.contents();
    const QString chain = "Device" + QStringLiteral("(Device)").repeated(rounds - 1);
    for (const DeviceChange &change : deviceChanges(name)) {
        files.insert(change.file, changedText(files.value(change.file), change, chain));
    }
    QCOMPARE(directory.files(), files.keys());
    for (auto file = files.cbegin(); file != files.cend(); ++file) {
        if (!file.key().endsWith(QLatin1String(".process.json"))) {
            QCOMPARE(undated(directory.read(file.key())), file.value());
            continue;
        }
        // The numbers of the example are right already, so only the key is new.
        QCOMPARE(directory.json(file.key()),
                 Description::with(example.json(file.key()),
                                   Definitions::getStrKeyProcessDataMemory(), name));
    }
}

} // namespace

/// Whole devices that are read and written back by several processes at once.
class tst_DeviceWriteBackAtOnce : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void twoDevicesLiveAtOnce();
    void readersNeverGetANullChild();
};

void tst_DeviceWriteBackAtOnce::twoDevicesLiveAtOnce()
{
    const DescriptionDirectory own("device");
    const DescriptionDirectory other("device");
    QVERIFY(own.copy(QStringLiteral(EXAMPLE_DEVICE)) && other.copy(QStringLiteral(EXAMPLE_DEVICE)));
    LogCapture log;
    ChildProcess device([&](const ChildSide &parent) {
        parent.say();
        parent.waitForWord();
        for (int round = 0; round < rounds; ++round) {
            CHILD_VERIFY(serve(other, QStringLiteral("other %1").arg(round)));
        }
        CHILD_VERIFY(log.take().isEmpty());
        return 0;
    });
    QVERIFY(device.waitUntilReady());

    device.tell();
    for (int round = 0; round < rounds; ++round) {
        QVERIFY(serve(own, QStringLiteral("own %1").arg(round)));
    }

    QCOMPARE(device.waitForExit(), 0);
    COMPARE_LOG(log);
    compareAll(own, "own 9");
    if (QTest::currentTestFailed()) {
        return;
    }
    compareAll(other, "other 9");
}

void tst_DeviceWriteBackAtOnce::readersNeverGetANullChild()
{
    constexpr int writes = 60;
    const DescriptionDirectory directory("device");
    QVERIFY(directory.copy(QStringLiteral(EXAMPLE_DEVICE)));
    const Root first = readDevice(directory);
    const Root second = readChangedDevice(directory);
    QVERIFY(!first.isNull() && !second.isNull());
    const QStringList urls = urlsOf(first);
    LogCapture log;

    ChildProcess reader([&](const ChildSide &parent) {
        parent.say();
        do {
            const Root root = readDevice(directory);
            CHILD_VERIFY(!root.isNull() && !hasNullChild(root));
            CHILD_VERIFY(urlsOf(root) == urls);
            for (const DeviceChange &change : deviceChanges()) {
                const QVariant value = Tools::extractConfigValue(change.url(), root);
                CHILD_VERIFY(value == change.value.toVariant()
                             || value == Tools::extractConfigValue(change.url(), first));
            }
        } while (!parent.hasWord());
        CHILD_VERIFY(log.take().isEmpty());
        return 0;
    });
    QVERIFY(reader.waitUntilReady());

    for (int i = 0; i < writes; ++i) {
        QVERIFY(writeDeviceBack(directory, i % 2 == 0 ? second : first));
    }
    reader.tell();

    COMPARE_LOG(log);
    QCOMPARE(reader.waitForExit(), 0);
}

QTEST_GUILESS_MAIN(tst_DeviceWriteBackAtOnce)
#include "tst_DeviceWriteBackAtOnce.moc"
