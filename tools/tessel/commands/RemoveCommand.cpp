#include "Companion/PingPongBufferHandler.h"
#include "Inspection/RegionInspection.h"
#include "ProcessData/Linux/SharedMemory.h"
#include "commands/Commands.h"
#include "text/Failure.h"
#include "text/JsonText.h"
#include "text/LogCollector.h"
#include "text/Output.h"

#include <QFile>
#include <QFileInfo>

#include <cerrno>

#include <sys/mman.h>
#include <unistd.h>

namespace {

using CreationType = SystemVSemaphoreBaseClass::CreationType;

/// What a key stands for in the system.
struct Remains
{
    QString key;
    RegionInspection region;
    bool hasMemory;
    bool hasSemaphores;

    QString memoryName() const { return key + QLatin1String("SharedMemory"); }
    QString semaphoreKey() const { return key + QLatin1String("Semaphore"); }
};

Remains remainsOf(const QString &key)
{
    const RegionInspection region(key);
    return {key, region, region.exists(), region.getLock().state != RegionLock::State::Unknown};
}

[[noreturn]] void refuseLiving(const QString &key, const QString &who)
{
    throw Failure{
        ExitCode::Refused,
        QStringLiteral("region '%1' is in use by %2; end it first, or give --force").arg(key, who)};
}

/// What can be seen without touching anything.
void refuseIfSeenAlive(const Remains &remains)
{
    const RegionCreator creator = remains.region.getCreator();
    if (creator.isAlive == true) {
        refuseLiving(remains.key, QStringLiteral("its creator, process %1").arg(*creator.pid));
    }
    if (remains.hasMemory && !remains.region.isDoubleBuffer()) {
        throw Failure{
            ExitCode::Refused,
            QStringLiteral("'%1' has no semaphores and does not say that it is a region, so "
                           "that it may be the memory of another program; give --force if "
                           "it is not")
                .arg(remains.key)};
    }
    const QVector<RegionUser> users = remains.region.getUsers();
    for (const RegionUser &user : users) {
        if (!user.isReplaced) {
            refuseLiving(remains.key, QStringLiteral("process %1").arg(user.pid));
        }
    }
}

[[noreturn]] void refuseSystem(const QString &what, const QString &reason)
{
    throw Failure{ExitCode::NoAccess, QStringLiteral("%1 cannot be removed: %2").arg(what, reason)};
}

/// The last user of a set of semaphores removes it; so it is left where the kernel counts another one,
/// whether this process may see him or not.
void removeSemaphores(const Remains &remains, CreationType type)
{
    LogCollector::takeReasons();
    {
        const SystemVSemaphoreBaseClass semaphores(remains.semaphoreKey(), type);
        if (!semaphores.isValid()) {
            refuseSystem(QStringLiteral("the semaphores of '%1'").arg(remains.key),
                         LogCollector::takeReasons());
        }
    }
    if (remains.region.getLock().state == RegionLock::State::Unknown) {
        return;
    }
    if (type == CreationType::CreationTypeCreate) {
        refuseSystem(QStringLiteral("the semaphores of '%1'").arg(remains.key),
                     QStringLiteral("somebody has joined them meanwhile, or they belong to another "
                                    "user"));
    }
    refuseLiving(remains.key, QStringLiteral("a process that cannot be seen, or its semaphores "
                                             "belong to another user"));
}

/// A writer that keeps the lock without a system call would not hear that its semaphores have gone.
void tellKeeper(const Remains &remains)
{
    if (remains.region.isDoubleBuffer() != true || !remains.region.getSwapCount()) {
        return;
    }
    SharedMemory memory;
    memory.setKey(remains.memoryName());
    if (memory.attach(SharedMemory::ReadWrite)) {
        PingPongBufferHandler::closeFormerRegion(
            *static_cast<PingPongBufferHandler::ManagementBuffer *>(memory.data()),
            remains.semaphoreKey());
    }
}

void removeMemory(const Remains &remains)
{
    // A creator may have begun a new region since.
    if (remains.region.isReadable()
        && remains.region.getName() == RegionInspection::Name::Replaced) {
        refuseLiving(remains.key, QStringLiteral("a creator that has just replaced it"));
    }
    const QByteArray name = QByteArrayLiteral("/") + QFile::encodeName(remains.memoryName());
    if (::shm_unlink(name.constData()) != 0 && errno != ENOENT) {
        const int error = errno;
        refuseSystem(QStringLiteral("the memory of '%1'").arg(remains.key), qt_error_string(error));
    }
    // What a receiver said of it as a mirror, if it did.
    for (const char *const ending : {"", ".new"}) {
        QFile::remove(
            QStringLiteral("/dev/shm/%1Mirror%2").arg(remains.key, QLatin1String(ending)));
    }
}

/// Before anything is changed: only the owner may take the name away.
void requireOwner(const Remains &remains)
{
    const QFileInfo memory(QStringLiteral("/dev/shm/") + remains.memoryName());
    if (remains.hasMemory && ::geteuid() != 0 && memory.ownerId() != ::geteuid()) {
        refuseSystem(QStringLiteral("the memory of '%1'").arg(remains.key),
                     qt_error_string(EACCES));
    }
}

void remove(const Remains &remains, bool isForced)
{
    requireOwner(remains);
    if (isForced) {
        tellKeeper(remains);
    }
    if (remains.hasSemaphores) {
        removeSemaphores(remains, isForced ? CreationType::CreationTypeCreate
                                           : CreationType::CreationTypeAttach);
    }
    if (remains.hasMemory) {
        removeMemory(remains);
    }
}

QString wordsFor(const Remains &remains, const QString &verb)
{
    const QString what = remains.hasMemory && remains.hasSemaphores
                             ? QStringLiteral("memory and semaphores")
                         : remains.hasMemory ? QStringLiteral("memory")
                                             : QStringLiteral("semaphores");
    return QStringLiteral("%1 %2 of '%3'\n").arg(verb, what, printable(remains.key));
}

ExitCode run(const CommandLine &line)
{
    const bool isForced = line.isSet(QStringLiteral("force"));
    const bool isTrial = line.isSet(QStringLiteral("dry-run"));
    const QString key = line.positional(0);
    if (key.isEmpty() || key.contains(QLatin1Char('/'))) {
        throw Failure{ExitCode::WrongUse,
                      QStringLiteral("rm: '%1' is no memory key; see 'tessel regions'").arg(key)};
    }
    const Remains remains = remainsOf(key);
    if (!remains.hasMemory && !remains.hasSemaphores) {
        throw Failure{ExitCode::NotFound, QStringLiteral("no region '%1'").arg(key)};
    }
    if (!isForced) {
        refuseIfSeenAlive(remains);
    }
    if (!isTrial) {
        remove(remains, isForced);
    }
    if (line.isSet(QStringLiteral("json"))) {
        writeOutput(jsonObject({{QStringLiteral("key"), jsonString(key)},
                                {QStringLiteral("memory"), jsonBool(remains.hasMemory)},
                                {QStringLiteral("semaphores"), jsonBool(remains.hasSemaphores)},
                                {QStringLiteral("removed"), jsonBool(!isTrial)}})
                    + QLatin1Char('\n'));
    } else {
        writeOutput(wordsFor(remains,
                             isTrial ? QStringLiteral("would remove") : QStringLiteral("removed")));
    }
    return ExitCode::Done;
}

} // namespace

Command removeCommand()
{
    CommandSyntax syntax;
    syntax.name = QStringLiteral("rm");
    syntax.summary = QStringLiteral("Remove a region that nobody uses, and its semaphores.");
    syntax.positionals = {
        {QStringLiteral("KEY"), QStringLiteral("The memory key, as 'tessel regions' shows it.")}};
    syntax.leastPositionals = 1;
    syntax.mostPositionals = 1;
    syntax.options = {
        {QStringLiteral("force"), QStringLiteral("Also if processes use it.")},
        {QStringLiteral("dry-run"), QStringLiteral("Remove nothing, and say what would be.")},
        {QStringLiteral("json"), QStringLiteral("Print a JSON object.")}};
    syntax.examples = QStringLiteral(
        "  tessel rm tesselTank              what a killed process has left\n"
        "  tessel rm --dry-run tesselTank    only look\n");
    return {syntax, run};
}
