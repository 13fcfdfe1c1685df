#include "mqtt/BirthCounter.h"

#include "service/Refusal.h"
#include "service/ServiceLog.h"

#include <QDir>
#include <QFile>
#include <QSaveFile>
#include <QUrl>

namespace {

constexpr qint64 mostBytes = 16;

/// Two different nodes never have one file.
QString fileNameOf(const QString &group, const QString &node)
{
    const auto encoded = [](const QString &text) {
        return QString::fromLatin1(QUrl::toPercentEncoding(text, {}, ".-"));
    };
    return encoded(group) + QLatin1Char('.') + encoded(node) + QStringLiteral(".bdseq");
}

/// Where there is none the next is 0.
int readNumber(const QString &path)
{
    QFile file(path);
    if (!file.exists()) {
        return BirthCounter::sm_most;
    }
    if (!file.open(QIODevice::ReadOnly)) {
        throw Refusal{ExitCode::NoAccess,
                      QStringLiteral("%1: %2; the user of this program has to be able to read and "
                                     "write it")
                          .arg(path, file.errorString())};
    }
    bool isNumber = false;
    const int number = QString::fromLatin1(file.read(mostBytes)).trimmed().toInt(&isNumber);
    if (!isNumber || number < 0 || number > BirthCounter::sm_most) {
        ServiceLog::warning(
            QStringLiteral("%1: holds no number from 0 to 255; counting from 0").arg(path));
        return BirthCounter::sm_most;
    }
    return number;
}

} // namespace

BirthCounter::BirthCounter(const QString &folder, const QString &group, const QString &node)
    : m_file(QDir(folder).filePath(fileNameOf(group, node)))
{
    if (!QDir().mkpath(folder)) {
        throw Refusal{ExitCode::NoAccess,
                      QStringLiteral("%1: this folder for the number of the next session cannot be "
                                     "made; name another one with 'state-dir'")
                          .arg(folder)};
    }
    m_lock = std::make_unique<QLockFile>(m_file + QStringLiteral(".lock"));
    m_lock->setStaleLockTime(0);
    if (!m_lock->tryLock()) {
        const bool isTaken = m_lock->error() == QLockFile::LockFailedError;
        throw Refusal{
            ExitCode::NoAccess,
            isTaken ? QStringLiteral("node '%1' of group '%2' is run by another process already; "
                                     "end that one, or take another name")
                          .arg(node, group)
                    : QStringLiteral("%1: this folder for the number of the next session cannot be "
                                     "written to; name another one with 'state-dir'")
                          .arg(folder)};
    }
    m_last = readNumber(m_file);
}

int BirthCounter::next()
{
    m_last = (m_last + 1) % (sm_most + 1);
    const bool isWritten = write(m_last);
    if (!isWritten && !m_isFailureTold) {
        ServiceLog::error(QStringLiteral("%1: cannot be written; after a restart a number of a "
                                         "session may come twice. Make room, or name another "
                                         "'state-dir'")
                              .arg(m_file));
    }
    m_isFailureTold = !isWritten;
    return m_last;
}

void BirthCounter::takeBack()
{
    m_last = (m_last + sm_most) % (sm_most + 1);
    write(m_last);
}

bool BirthCounter::write(int number) const
{
    // Written beside and renamed, so that a loss of power leaves one of the two numbers.
    QSaveFile file(m_file);
    return file.open(QIODevice::WriteOnly) && file.write(QByteArray::number(number) + '\n') > 0
           && file.commit();
}
