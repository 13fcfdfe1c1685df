#include "support/DoubleBuffer.h"
#include "support/LogCapture.h"
#include "support/SteppedChild.h"

#include <QtTest>

namespace {

constexpr unsigned char publishedByte = 1;
constexpr unsigned char newByte = 2;

/// A writer inside its write lock, its set written whole, that goes on by single instructions until it
/// has given the lock back.
class UnlockingWriter
{
public:
    explicit UnlockingWriter(const DoubleBuffer &buffer)
        : m_buffer(buffer)
        , m_child([this] { hasUnlocked() ? _exit(0) : _exit(1); }, [this] { writeWholeSet(); })
    {
    }

    bool canBeTraced() const { return m_child.canBeTraced(); }

    /// Goes on until the management block has changed this often. False if the writer ended before.
    bool goOn(int changes)
    {
        QByteArray block = blockBytes();
        while (changes > 0) {
            if (!m_child.step()) {
                return false;
            }
            if (block != blockBytes()) {
                block = blockBytes();
                --changes;
            }
        }
        return true;
    }
    bool hasEndedWell() const { return m_child.hasEndedWell(); }

private:
    void writeWholeSet()
    {
        m_handler = m_buffer.attach();
        m_locked = m_handler->lockForWrite();
        fillBuffer(m_locked, m_buffer.size(), newByte);
    }
    QByteArray blockBytes() const
    {
        return QByteArray(reinterpret_cast<const char *>(m_buffer.management()),
                          static_cast<int>(PingPongBufferHandler::getSizeManagementBuffer()));
    }
    bool hasUnlocked() { return m_handler->unlockForWrite(m_locked); }

    const DoubleBuffer &m_buffer;
    DoubleBuffer::Handler m_handler;
    unsigned char *m_locked = nullptr;
    SteppedChild m_child;
};

} // namespace

/// The way out of a write lock, left behind each store into the management block: nothing else tells the
/// others of a set.
class tst_PingPongUnlockSteps : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void deathBehindAnyStoreIsNoLostSet();
};

/// Nobody else's set goes with it, so a swap has nothing to say and nothing to refuse: it publishes the
/// set of the dead writer, or what was published before.
void tst_PingPongUnlockSteps::deathBehindAnyStoreIsNoLostSet()
{
    LogCapture log;
    bool isGoingOn = true;
    QByteArray found;
    for (int changes = 0; isGoingOn; ++changes) {
        const DoubleBuffer buffer;
        const auto handler = buffer.create();
        QVERIFY(publishSet(*handler, publishedByte));
        {
            UnlockingWriter writer(buffer);
            if (!writer.canBeTraced()) {
                QSKIP("needs ptrace", );
            }
            isGoingOn = writer.goOn(changes);
            QVERIFY(isGoingOn || writer.hasEndedWell());
        }

        QVERIFY2(handler->swapBuffers(), qPrintable(QStringLiteral("change %1").arg(changes)));
        COMPARE_LOG(log);
        found += static_cast<char>(handler->readBufferPointer()[0]);
        QVERIFY(isPublished(*handler, static_cast<unsigned char>(found.back())));
    }
    // While its mark stands the set is half of one; from then on it counts.
    QCOMPARE(found, QByteArray(1, publishedByte) + QByteArray(found.size() - 1, newByte));
    QVERIFY(found.size() >= 3);
}

QTEST_GUILESS_MAIN(tst_PingPongUnlockSteps)
#include "tst_PingPongUnlockSteps.moc"
