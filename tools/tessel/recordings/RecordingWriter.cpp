#include "recordings/RecordingWriter.h"

#include "descriptions/DescriptionFile.h"
#include "recordings/Crc32.h"
#include "recordings/RecordingHead.h"
#include "recordings/RecordingReader.h"

#include <QFile>
#include <QtEndian>

#include <algorithm>
#include <cerrno>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

constexpr mode_t usualMode = 0666; // narrowed by the umask

template <class Number>
void append(QByteArray &bytes, Number number)
{
    const Number little = qToLittleEndian(number);
    bytes.append(reinterpret_cast<const char *>(&little), sizeof little);
}

QByteArray fileHead()
{
    QByteArray head(RecordingFormat::magic, sizeof RecordingFormat::magic);
    append(head, RecordingFormat::number);
    append(head, quint32(0));
    return head;
}

/// Length and kind come first, then room for the checksum.
void beginRecord(QByteArray &record, RecordingFormat::Kind kind, int length)
{
    record.reserve(RecordingFormat::recordHeadSize + length);
    record.resize(0);
    append(record, static_cast<quint32>(length));
    append(record, static_cast<quint32>(kind));
    append(record, quint32(0));
}

void finishRecord(QByteArray &record)
{
    constexpr int sumPlace = 8;
    const char *const content = record.constData() + RecordingFormat::recordHeadSize;
    quint32 sum = crc32(record.constData(), sumPlace);
    sum = crc32(content, static_cast<std::size_t>(record.size() - RecordingFormat::recordHeadSize),
                sum);
    qToLittleEndian(sum, record.data() + sumPlace);
}

QByteArray jsonRecord(RecordingFormat::Kind kind, const QByteArray &json)
{
    QByteArray record;
    beginRecord(record, kind, json.size());
    record.append(json);
    finishRecord(record);
    return record;
}

/// Why what a recorder of @p now writes cannot stand behind what is there; empty if it can. A recording has one
/// beginning, which says what all of its sets are.
QString differenceOf(const RecordingHead &former, const RecordingHead &now)
{
    if (former.key != now.key) {
        return QStringLiteral("is a recording of region '%1', not of '%2'")
            .arg(former.key, now.key);
    }
    const auto isSame = [](const RecordedValue &one, const RecordedValue &other) {
        return one == other && one.unit == other.unit;
    };
    if (former.fingerprint != now.fingerprint
        || !std::equal(former.values.cbegin(), former.values.cend(), now.values.cbegin(),
                       now.values.cend(), isSame)) {
        return QStringLiteral("was recorded with other values");
    }
    return former.interval == now.interval ? QString()
                                           : QStringLiteral("was recorded with another interval");
}

} // namespace

RecordingWriter::RecordingWriter(const QString &path, Existing existing, const RecordingHead &head)
    : m_path(path)
    , m_existing(existing)
    , m_head(head)
{
    lookAtFormer();
}

RecordingWriter::~RecordingWriter()
{
    if (m_file >= 0) {
        ::close(m_file);
    }
}

/// What is there stays as it is, unless it is a recording and the caller says so.
void RecordingWriter::lookAtFormer()
{
    QFile file(m_path);
    if (!file.exists() || file.size() == 0) {
        return;
    }
    RecordingReader former(m_path);
    m_isFound = true;
    m_formerSize = file.size();
    if (m_existing == Existing::Refused) {
        refusePath(ExitCode::Refused, m_path,
                   QStringLiteral("is a recording already; --append adds to it, --force replaces "
                                  "it"));
    }
    if (m_existing == Existing::Replaced) {
        return;
    }
    const QString difference = differenceOf(former.head(), m_head);
    if (!difference.isEmpty()) {
        refusePath(ExitCode::LayoutMismatch, m_path,
                   difference + QStringLiteral("; name another file"));
    }
    RecordedSet set;
    while (former.next(set)) { }
    if (former.isDamaged()) {
        refusePath(ExitCode::InputOutputFile, m_path, former.problem());
    }
    m_end = former.position();
}

void RecordingWriter::begin()
{
    open();
    const bool isContinued = m_isFound && m_existing == Existing::Continued;
    // What a killed recorder has left behind the last whole record.
    if (::ftruncate(m_file, isContinued ? m_end : 0) != 0 || ::lseek(m_file, 0, SEEK_END) < 0) {
        refuseWrite(errno);
    }
    if (!isContinued) {
        m_end = 0;
        // At once: where there is no room the file is empty again, and not half a head that no recorder replaces.
        write(fileHead() + jsonRecord(RecordingFormat::Head, headJson(m_head))
              + jsonRecord(RecordingFormat::Description, m_head.description));
    }
}

void RecordingWriter::open()
{
    const QByteArray name = QFile::encodeName(m_path);
    m_file = ::open(name.constData(), O_RDWR | O_CREAT | O_CLOEXEC, usualMode);
    if (m_file < 0) {
        refuseWrite(errno);
    }
    if (::flock(m_file, LOCK_EX | LOCK_NB) != 0) {
        refusePath(ExitCode::Refused, m_path,
                   QStringLiteral("is being written by another recorder"));
    }
    // Somebody may have written it since it was looked at.
    struct stat now = {};
    if (::fstat(m_file, &now) != 0) {
        refuseWrite(errno);
    }
    if (!m_isFound && now.st_size != 0) {
        refusePath(ExitCode::Refused, m_path,
                   QStringLiteral("has just been made by another program"));
    }
    if (m_existing == Existing::Continued && now.st_size != m_formerSize) {
        refusePath(ExitCode::Refused, m_path,
                   QStringLiteral("has just been written by another recorder; try again"));
    }
}

void RecordingWriter::addWholeSet(const SetFacts &facts, const QByteArray &set)
{
    addSet(RecordingFormat::WholeSet, facts, set);
}

void RecordingWriter::addChangedSet(const SetFacts &facts, const QByteArray &changes)
{
    addSet(RecordingFormat::ChangedSet, facts, changes);
}

void RecordingWriter::addSet(RecordingFormat::Kind kind, const SetFacts &facts,
                             const QByteArray &content)
{
    beginRecord(m_record, kind, RecordingFormat::setHeadSize + content.size());
    append(m_record, facts.generation);
    append(m_record, facts.dropped);
    append(m_record, facts.time);
    append(m_record, facts.elapsed);
    m_record.append(content);
    finishRecord(m_record);
    write(m_record);
    ++m_sets;
    m_dropped += facts.dropped;
}

void RecordingWriter::addJson(RecordingFormat::Kind kind, const QByteArray &json)
{
    write(jsonRecord(kind, json));
}

void RecordingWriter::requireUntouched() const
{
    struct stat now = {};
    if (::fstat(m_file, &now) != 0) {
        refuseWrite(errno);
    }
    if (now.st_nlink == 0) {
        refusePath(ExitCode::InputOutputFile, m_path,
                   QStringLiteral("was removed while it was written"));
    }
    if (now.st_size != m_end) {
        refusePath(ExitCode::InputOutputFile, m_path,
                   QStringLiteral("was changed by another program while it was written"));
    }
}

void RecordingWriter::write(const QByteArray &bytes)
{
    // Behind a cut there would be a gap that no reader passes, and in a file without a name nothing.
    requireUntouched();
    int written = 0;
    while (written < bytes.size()) {
        const auto count = ::write(m_file, bytes.constData() + written,
                                   static_cast<std::size_t>(bytes.size() - written));
        if (count < 0 && errno != EINTR) {
            const int error = errno;
            // Half a record would be read over anyway, but nobody needs it.
            static_cast<void>(::ftruncate(m_file, m_end));
            refuseWrite(error);
        }
        written += count < 0 ? 0 : static_cast<int>(count);
    }
    m_end += bytes.size();
    m_bytes += bytes.size();
}

void RecordingWriter::refuseWrite(int error) const
{
    const bool isAccess = error == EACCES || error == EPERM;
    refusePath(isAccess ? ExitCode::NoAccess : ExitCode::InputOutputFile, m_path,
               isAccess ? QStringLiteral("no permission to write it")
                        : QStringLiteral("cannot be written: %1").arg(qt_error_string(error)));
}
