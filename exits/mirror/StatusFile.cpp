#include "mirror/StatusFile.h"

#include "service/Refusal.h"
#include "service/ServiceLog.h"

#include <QFile>
#include <QSaveFile>

#include <sys/stat.h>

namespace {

constexpr int writeInterval = 1000; // ms
/// Writings until the time begins anew that rates are of: it is twice as long at most.
constexpr int rateWritings = 5;

/// The null device would be replaced by a file and removed at the end, and a link removed without its file.
bool isSomethingElse(const QString &path)
{
    struct stat status = {};
    return ::lstat(QFile::encodeName(path).constData(), &status) == 0 && !S_ISREG(status.st_mode);
}

} // namespace

StatusFile::StatusFile(const QString &path, const MirrorDomain &domain, StatusReaders::Of of,
                       const Own &own)
    : m_path(path)
    , m_readers(domain, of)
    , m_own(own)
{
    const QString problem = write();
    if (!problem.isEmpty()) {
        throw Refusal{ExitCode::NoAccess, problem};
    }
    connect(&m_timer, &QTimer::timeout, this, &StatusFile::writeAgain);
    m_timer.start(writeInterval);
}

StatusFile::~StatusFile()
{
    QFile::remove(m_path);
}

/// Empty, or why it is not written.
QString StatusFile::write()
{
    m_readers.take(m_status);
    if (m_own) {
        m_own(m_status);
    }
    const QByteArray text = m_status.json();
    const auto problem = [this](const QString &reason) {
        return QStringLiteral("%1: the status cannot be written: %2; name a file in a folder that "
                              "this program may write into")
            .arg(m_path, reason);
    };
    if (isSomethingElse(m_path)) {
        return problem(QStringLiteral("what is there is no regular file"));
    }
    QSaveFile file(m_path);
    // It holds no values, and whoever shows it is another user.
    const bool isWritten = file.open(QIODevice::WriteOnly) && file.write(text) == text.size()
                           && file.setPermissions(QFile::ReadOwner | QFile::WriteOwner
                                                  | QFile::ReadGroup | QFile::ReadOther)
                           && file.commit();
    return isWritten ? QString() : problem(file.errorString());
}

void StatusFile::writeAgain()
{
    const QString problem = write();
    if (!problem.isEmpty() && problem != m_problem) {
        ServiceLog::warning(problem);
    }
    m_problem = problem;
    if (++m_writings % rateWritings == 0) {
        m_status.beginNextTime();
    }
}
