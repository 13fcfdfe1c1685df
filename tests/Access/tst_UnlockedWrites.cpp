#include "Access/NumberRegion.h"
#include "Access/ProcessDoubleHandle.h"

#include <QtTest>

namespace {

using namespace ProcessDataDefinitions;

ProcessValue valid(const QVariant &content)
{
    return {content, PROCESS_VALUE_ERROR_TYPE_VALID};
}

/// Numbers of every form and a text.
struct TextRegion : NumberRegion
{
    TextRegion() : NumberRegion(true)
    {
        SlotDescription text;
        text.type = QStringLiteral("string");
        text.offset = static_cast<quint32>(description.size);
        text.sizeValue = 12;
        description.leaves.insert(QStringLiteral("text"), text);
        description.size += text.sizeValue;
    }
};

QString published(const ProcessDataValue &leaf)
{
    ProcessValue value(PROCESS_VALUE_ERROR_TYPE_NO_VALID_INPUT_VALUE);
    leaf.getValue(value, false);
    return value.getValue().toString();
}

} // namespace

/// Single values that are written without a lock, by a thread whose set another user has published.
class tst_UnlockedWrites : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void writeAfterTheOthersSwapIsPublished_data();
    void writeAfterTheOthersSwapIsPublished();
    void writeOfAHandleAfterTheOthersSwapIsPublished();
    void writeBehindALockThatFailedIsPublished();
};

void tst_UnlockedWrites::writeAfterTheOthersSwapIsPublished_data()
{
    QTest::addColumn<QString>("url");

    for (const auto &form : NumberRegion::forms()) {
        for (const int place : {0, 1, 4, 8, 13}) {
            const QString url = QStringLiteral("%1-%2").arg(QLatin1String(form.type)).arg(place);
            QTest::newRow(qPrintable(url)) << url;
        }
    }
    QTest::newRow("text") << QStringLiteral("text");
}

void tst_UnlockedWrites::writeAfterTheOthersSwapIsPublished()
{
    QFETCH(QString, url);
    const TextRegion region;
    LiveRegion own(region.description);
    LiveRegion other(region.description, ProcessDataManager::InitTypeSharedMemoryAttach);
    const auto leaf = own.leaf(url);
    QVERIFY(leaf->setValue(valid(0)));
    QVERIFY(other.manager.swapReadAndWriteBuffer());
    const QString before = published(*leaf);
    QVERIFY(leaf->setValueNoLock(valid(1)));

    QVERIFY(own.manager.swapReadAndWriteBuffer());

    const QString after = published(*leaf);
    QVERIFY(after != before);
    QCOMPARE(published(*other.leaf(url)), after);
}

void tst_UnlockedWrites::writeOfAHandleAfterTheOthersSwapIsPublished()
{
    const TextRegion region;
    LiveRegion own(region.description);
    LiveRegion other(region.description, ProcessDataManager::InitTypeSharedMemoryAttach);
    const ProcessDoubleHandle handle(own.root, QStringLiteral("double-8"));
    QVERIFY(handle.write(1, PROCESS_VALUE_ERROR_TYPE_VALID));
    QVERIFY(other.manager.swapReadAndWriteBuffer());
    QVERIFY(handle.writeNoLock(2, PROCESS_VALUE_ERROR_TYPE_VALID));

    QVERIFY(own.manager.swapReadAndWriteBuffer());

    QCOMPARE(published(*other.leaf(QStringLiteral("double-8"))), QStringLiteral("2"));
}

void tst_UnlockedWrites::writeBehindALockThatFailedIsPublished()
{
    const TextRegion region;
    LiveRegion own(region.description);
    LiveRegion other(region.description, ProcessDataManager::InitTypeSharedMemoryAttach);
    const auto leaf = own.leaf(QStringLiteral("double-0"));
    QVERIFY(leaf->setValue(valid(1)));
    QVERIFY(own.manager.swapReadAndWriteBuffer());
    QVERIFY(other.manager.lockWriteBuffer());
    own.manager.lockWriteBuffer();
    QVERIFY(own.manager.getPointerWriteBuffer() == nullptr);
    own.manager.unlockWriteBuffer();
    QVERIFY(other.manager.unlockWriteBuffer());
    QVERIFY(other.manager.swapReadAndWriteBuffer());
    QVERIFY(leaf->setValueNoLock(valid(2)));

    QVERIFY(own.manager.swapReadAndWriteBuffer());

    QCOMPARE(published(*leaf), QStringLiteral("2"));
}

QTEST_GUILESS_MAIN(tst_UnlockedWrites)
#include "tst_UnlockedWrites.moc"
