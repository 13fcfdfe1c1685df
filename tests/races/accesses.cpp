// Lets two threads do something at once, as the argument says. The thread sanitizer must report all
// of it but `atomic`: otherwise its silence about the tests is worth nothing.

#include "Companion/Exchange/SharedBytes_p.h"
#include "ProcessData/Linux/ProcessDataValue.h"

#include <QJsonObject>
#include <QMutex>

#include <cstdio>
#include <string>
#include <thread>

#include <sys/wait.h>
#include <unistd.h>

namespace {

alignas(8) unsigned char sharedWord[8];

/// Neither function knows anything of the other, whichever comes first.
template <class First, class Second>
void runAtOnce(const First &first, const Second &second)
{
    std::thread one(first);
    std::thread other(second);
    one.join();
    other.join();
}

void storePlainly()
{
    *reinterpret_cast<volatile unsigned char *>(sharedWord) = 1;
}

void accessAtomically()
{
    runAtOnce([] { storeShared<quint64>(sharedWord, 1); },
              [] { return loadShared<quint64>(sharedWord); });
}

void accessPlainly()
{
    runAtOnce(storePlainly, [] { return loadShared<quint64>(sharedWord); });
}

void accessUnderTwoMutexes()
{
    QMutex first;
    QMutex second;
    const auto storeUnder = [](QMutex &mutex) {
        const QMutexLocker locker(&mutex);
        storePlainly();
    };
    runAtOnce([&] { storeUnder(first); }, [&] { storeUnder(second); });
}

/// Gives its bytes away without any lock.
class OpenBuffer : public BufferHandlerInterface
{
public:
    BufferPointer lockForRead() override { return sharedWord; }
    bool unlockForRead(BufferPointer, bool &repeat) override
    {
        repeat = false;
        return true;
    }
    BufferPointer lockForWrite() override { return sharedWord; }
    bool unlockForWrite(BufferPointer) override { return true; }
    BufferPointer readBufferPointer() override { return sharedWord; }
    BufferPointer writeBufferPointer() override { return sharedWord; }
    bool swapBuffers() override { return true; }
    quint32 bufferSize() override { return sizeof(sharedWord); }
};

/// Against the rule that only one thread at a time uses an element.
void readOneElementTwice()
{
    const QJsonObject json{{QStringLiteral("type"), QStringLiteral("int32")},
                           {QStringLiteral("sizeValue"), 4},
                           {QStringLiteral("sizeMetadata"), 4},
                           {QStringLiteral("relativeOffsetMetadata"), 4}};
    OpenBuffer buffer;
    ProcessDataValue element(json, nullptr);
    element.setBufferHandlerInterface(&buffer, true);
    const auto readValue = [&element] {
        ProcessValue value(ProcessDataDefinitions::PROCESS_VALUE_ERROR_TYPE_VALID);
        element.getValue(value);
    };
    runAtOnce(readValue, readValue);
}

/// Gives the exit code of the child.
int accessPlainlyInAChild()
{
    const pid_t child = fork();
    if (child == 0) {
        accessPlainly();
        _exit(0);
    }
    int status = 0;
    return waitpid(child, &status, 0) == child && WIFEXITED(status) ? WEXITSTATUS(status) : 1;
}

} // namespace

int main(int argc, char *argv[])
{
    const std::string what = argc == 2 ? argv[1] : "";
    if (what == "child") {
        return accessPlainlyInAChild();
    }
    if (what == "atomic") {
        accessAtomically();
    } else if (what == "plain") {
        accessPlainly();
    } else if (what == "mutexes") {
        accessUnderTwoMutexes();
    } else if (what == "element") {
        readOneElementTwice();
    } else {
        std::fputs("usage: accesses atomic|plain|child|mutexes|element\n", stderr);
        return 2;
    }
    return 0;
}
