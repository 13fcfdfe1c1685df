#include "Companion/PingPongBufferHandler.h"
#include "Companion/SystemVSemaphoreBaseClass.h"
#include "support/ChildProcess.h"
#include "support/DoubleBuffer.h"
#include "support/LogCapture.h"
#include "support/SemaphoreSet.h"

#include <QHash>
#include <QSet>

#include <memory>

namespace {

using Semaphores = SystemVSemaphoreBaseClass;
constexpr auto create = Semaphores::CreationTypeCreate;
constexpr auto attach = Semaphores::CreationTypeAttach;

QString newKey()
{
    return SemaphoreSet::uniqueKey(QStringLiteral("key"));
}

LogLine refusal(const QString &key)
{
    return warning(QStringLiteral("The semaphores of \"%1\" can't be used: System V key %2 belongs "
                                  "to somebody else (ipcs -s). Choose another memory key.")
                       .arg(key)
                       .arg(Semaphores::systemVKey(key)));
}

/// Two different texts with one System V key.
struct Collision
{
    QString first;
    QString second;
};

Collision findCollision()
{
    const QString stem = newKey();
    QHash<key_t, int> numbers;
    for (int i = 0; i < 2000000; ++i) {
        const auto text = [&stem](int number) { return stem + QString::number(number); };
        const key_t key = Semaphores::systemVKey(text(i));
        const auto former = numbers.constFind(key);
        if (former != numbers.cend()) {
            return {text(*former), text(i)};
        }
        numbers.insert(key, i);
    }
    return {};
}

std::vector<unsigned short> emptySet(int count)
{
    return std::vector<unsigned short>(static_cast<std::size_t>(count), 0);
}

} // namespace

class tst_SemaphoreKeys : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void keyIsTheBeginningOfTheHash_data();
    void keyIsTheBeginningOfTheHash();
    void keysAreSpread();
    void textWithTheSameKeyIsRefused_data();
    void textWithTheSameKeyIsRefused();
    void handlerWithARefusedSetReadsButNeverWrites();
    void foreignSetIsLeftAlone_data();
    void foreignSetIsLeftAlone();
    void emptySetThatHasBeenUsedIsLeftAlone();
    void setWithoutPermissionIsLeftAlone();
    void setThatNobodyFilledInIsReplaced();
};

void tst_SemaphoreKeys::keyIsTheBeginningOfTheHash_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<quint32>("key");

    QTest::newRow("empty") << QString() << 0xe3b0c442U;
    QTest::newRow("short") << QStringLiteral("abc") << 0xba7816bfU;
    QTest::newRow("in UTF-8") << QString::fromUtf8("Ger\xc3\xa4t") << 0xb32db786U;
    // The hash begins with 32 zero bits, but IPC_PRIVATE would be a set of its own for each caller.
    QTest::newRow("never private") << QStringLiteral("key 3310872860") << 1U;
}

void tst_SemaphoreKeys::keyIsTheBeginningOfTheHash()
{
    QFETCH(QString, text);
    QFETCH(quint32, key);

    QCOMPARE(Semaphores::systemVKey(text), static_cast<key_t>(key));
    QCOMPARE(Semaphores::systemVKey(text), static_cast<key_t>(key));
}

void tst_SemaphoreKeys::keysAreSpread()
{
    QSet<key_t> keys;
    for (int i = 0; i < 10000; ++i) {
        keys.insert(Semaphores::systemVKey(QStringLiteral("Device%1Semaphore").arg(i)));
    }

    // 10,000 evenly spread keys of 32 bits meet 0.01 times on average.
    QVERIFY(keys.size() >= 9999);
    QVERIFY(!keys.contains(IPC_PRIVATE));
}

void tst_SemaphoreKeys::textWithTheSameKeyIsRefused_data()
{
    QTest::addColumn<bool>("isCreator");

    QTest::newRow("creator") << true;
    QTest::newRow("attacher") << false;
}

void tst_SemaphoreKeys::textWithTheSameKeyIsRefused()
{
    QFETCH(bool, isCreator);
    const Collision texts = findCollision();
    QVERIFY(texts.first != texts.second);
    QCOMPARE(Semaphores::systemVKey(texts.first), Semaphores::systemVKey(texts.second));
    const SemaphoreSet set(texts.first);
    LogCapture log;
    auto owner = std::make_unique<Semaphores>(texts.first, create);
    const int id = set.id();

    auto stranger = std::make_unique<Semaphores>(texts.second, isCreator ? create : attach);

    QVERIFY(!stranger->isValid());
    COMPARE_LOG(log, refusal(texts.second));
    QCOMPARE(set.users(), 1);
    stranger.reset();
    QVERIFY(owner->isValid());
    QCOMPARE(set.id(), id);
    QCOMPARE(set.users(), 1);
    owner.reset();
    QVERIFY(!set.exists());
    QCOMPARE(log.take(), QList<LogLine>());
}

void tst_SemaphoreKeys::handlerWithARefusedSetReadsButNeverWrites()
{
    LogCapture log;
    DoubleBuffer buffer;
    QVERIFY(buffer.semaphores.make(emptySet(1)) >= 0);

    const auto handler = buffer.create();

    COMPARE_LOG(log, refusal(buffer.semaphores.key()));
    QCOMPARE(handler->lockForWrite(), nullptr);
    QVERIFY(!handler->swapBuffers());
    QCOMPARE(readOnce(*handler), ReadResult::Reliable);
    QCOMPARE(log.take(), QList<LogLine>());
}

void tst_SemaphoreKeys::foreignSetIsLeftAlone_data()
{
    QTest::addColumn<QVector<ushort>>("values");
    QTest::addColumn<bool>("isCreator");

    const QVector<ushort> ourCount(SemaphoreSet::Names::SemaphoreCount, 0);
    QVector<ushort> inUse = ourCount;
    inUse[0] = 1;
    const QVector<ushort> otherFingerprint(SemaphoreSet::Names::SemaphoreCount, 7);
    for (const bool isCreator : {true, false}) {
        const char *const who = isCreator ? "creator" : "attacher";
        const auto newRow = [who](const char *what) -> QTestData & {
            return QTest::addRow("%s, %s", what, who);
        };
        newRow("one semaphore") << QVector<ushort>{1} << isCreator;
        newRow("one more than ours") << ourCount + QVector<ushort>{0} << isCreator;
        newRow("other fingerprint") << otherFingerprint << isCreator;
        newRow("as many as ours, in use") << inUse << isCreator;
    }
}

void tst_SemaphoreKeys::foreignSetIsLeftAlone()
{
    QFETCH(QVector<ushort>, values);
    QFETCH(bool, isCreator);
    const SemaphoreSet set(newKey());
    const int id = set.make({values.cbegin(), values.cend()});
    QVERIFY(id >= 0);
    LogCapture log;

    auto stranger = std::make_unique<Semaphores>(set.key(), isCreator ? create : attach);

    QVERIFY(!stranger->isValid());
    COMPARE_LOG(log, refusal(set.key()));
    stranger.reset();
    QCOMPARE(set.id(), id);
    for (int i = 0; i < values.size(); ++i) {
        QCOMPARE(set.value(i), int{values[i]});
    }
}

void tst_SemaphoreKeys::emptySetThatHasBeenUsedIsLeftAlone()
{
    const SemaphoreSet set(newKey());
    const int id = set.make(emptySet(SemaphoreSet::Names::SemaphoreCount));
    sembuf upAndDown[] = {{0, 1, 0}, {0, -1, 0}};
    QCOMPARE(semop(id, upAndDown, 2), 0);
    LogCapture log;

    const Semaphores stranger(set.key(), create);

    QVERIFY(!stranger.isValid());
    COMPARE_LOG(log, refusal(set.key()));
    QCOMPARE(set.id(), id);
}

void tst_SemaphoreKeys::setWithoutPermissionIsLeftAlone()
{
    const SemaphoreSet set(newKey());
    const int id = semget(Semaphores::systemVKey(set.key()), SemaphoreSet::Names::SemaphoreCount,
                          IPC_CREAT | IPC_EXCL | 0600);
    QVERIFY(id >= 0);
    ChildProcess other([&set](const ChildSide &) {
        if (setuid(65534) != 0) {
            return ChildProcess::sm_cannotTry;
        }
        LogCapture log;
        const Semaphores semaphores(set.key(), create);
        CHILD_VERIFY(!semaphores.isValid());
        CHILD_VERIFY(log.take() == (QList<LogLine>{refusal(set.key())}));
        return 0;
    });

    COMPARE_EXIT(other.waitForExit(), "the right to become another user");
    QCOMPARE(set.id(), id);
}

void tst_SemaphoreKeys::setThatNobodyFilledInIsReplaced()
{
    const SemaphoreSet set(newKey());
    LogCapture log;
    const int formerId = set.make(emptySet(SemaphoreSet::Names::SemaphoreCount));
    QVERIFY(formerId >= 0);

    auto attacher = std::make_unique<Semaphores>(set.key(), attach);

    QVERIFY(attacher->isValid());
    QVERIFY(set.id() != formerId);
    attacher.reset();
    QVERIFY(!set.exists());
    QCOMPARE(log.take(), QList<LogLine>());
}

QTEST_GUILESS_MAIN(tst_SemaphoreKeys)
#include "tst_SemaphoreKeys.moc"
