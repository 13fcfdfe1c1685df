#include "recordings/RecordingReader.h"

#include "descriptions/DescriptionFile.h"
#include "recordings/Crc32.h"
#include "recordings/RecordingHead.h"
#include "text/DescriptorCure.h"
#include "text/Output.h"

#include <QFileInfo>
#include <QJsonDocument>
#include <QJsonObject>
#include <QtEndian>

#include <cerrno>
#include <cstring>
#include <numeric>

#include <fcntl.h>
#include <unistd.h>

namespace {

using namespace RecordingFormat;

template <class Number>
Number numberAt(const QByteArray &bytes, int place)
{
    return qFromLittleEndian<Number>(bytes.constData() + place);
}

[[noreturn]] void refuseOpening(const QString &path, int error)
{
    if (error == EACCES || error == EPERM) {
        refusePath(ExitCode::NoAccess, path, QStringLiteral("no permission to read it"));
    }
    const QString reason = QStringLiteral("cannot be opened: %1").arg(qt_error_string(error));
    const QString cure = descriptorCure(error);
    if (cure.isEmpty()) {
        refusePath(ExitCode::InputOutputFile, path, reason);
    }
    refusePath(ExitCode::NoAccess, path, reason + QLatin1String("; ") + cure);
}

std::unique_ptr<QIODevice> openedFile(const QString &path)
{
    const QFileInfo info(path);
    if (!info.exists()) {
        refusePath(ExitCode::NotFound, path, QStringLiteral("no such file"));
    }
    if (!info.isFile()) {
        refusePath(ExitCode::InputOutputFile, path, QStringLiteral("is no regular file"));
    }
    // The toolkit keeps no errno.
    const int descriptor = ::open(QFile::encodeName(path).constData(), O_RDONLY | O_CLOEXEC);
    if (descriptor < 0) {
        refuseOpening(path, errno);
    }
    auto file = std::make_unique<QFile>();
    if (!file->open(descriptor, QIODevice::ReadOnly, QFileDevice::AutoCloseHandle)) {
        ::close(descriptor);
        refusePath(ExitCode::InputOutputFile, path,
                   QStringLiteral("cannot be read: %1").arg(file->errorString()));
    }
    // cppcheck-suppress resourceLeak ; the file closes it
    return file;
}

SetFacts factsOf(const QByteArray &content)
{
    return {numberAt<quint64>(content, 0), numberAt<quint64>(content, 8),
            numberAt<qint64>(content, 16), numberAt<quint64>(content, 24)};
}

} // namespace

RecordingReader::RecordingReader(const QString &path) : RecordingReader(openedFile(path), path) { }

RecordingReader::RecordingReader(std::unique_ptr<QIODevice> device, const QString &name)
    : m_path(name)
    , m_device(std::move(device))
{
    readHead();
}

void RecordingReader::refuse(const QString &reason) const
{
    refusePath(ExitCode::InputOutputFile, m_path, reason);
}

void RecordingReader::readHead()
{
    const QByteArray begin = m_device->read(fileHeadSize);
    if (begin.size() < fileHeadSize || std::memcmp(begin.constData(), magic, sizeof magic) != 0) {
        refuse(QStringLiteral("is no recording"));
    }
    const auto found = numberAt<quint32>(begin, sizeof magic);
    if (found != number) {
        refuse(QStringLiteral("is a recording of format %1; this tool knows format %2")
                   .arg(found)
                   .arg(number));
    }
    m_position = fileHeadSize;
    const bool hasHead = nextRecord() && m_record.kind == Head;
    const auto head = hasHead ? headFromJson(m_record.content) : std::nullopt;
    if (!head || !nextRecord() || m_record.kind != Description) {
        refuse(QStringLiteral("is a recording without a whole head"));
    }
    m_head = *head;
    m_head.description = m_record.content;
    m_layout = ImageLayout(m_head.values);
    m_begin = m_position;
}

void RecordingReader::rewind()
{
    m_position = m_begin;
    m_isDamaged = false;
    m_isCutOff = false;
    m_hasImage = false;
    m_isRunDue = true;
}

/// False at the end, be it the right one or not.
bool RecordingReader::nextRecord()
{
    const qint64 left = m_device->size() - m_position;
    if (left == 0) {
        return false;
    }
    if (!m_device->seek(m_position)) {
        m_isDamaged = true;
        return false;
    }
    m_isCutOff = left < recordHeadSize;
    if (m_isCutOff) {
        return false;
    }
    const QByteArray head = m_device->read(recordHeadSize);
    // Where the disk fails there may be sets behind, which nobody may cut off.
    m_isDamaged = head.size() < recordHeadSize;
    if (m_isDamaged) {
        return false;
    }
    const auto length = numberAt<quint32>(head, 0);
    m_isDamaged = length > longestRecord;
    m_isCutOff = !m_isDamaged && length > left - recordHeadSize;
    if (m_isDamaged || m_isCutOff) {
        return false;
    }
    m_record.kind = numberAt<quint32>(head, 4);
    m_record.content = m_device->read(length);
    const auto size = static_cast<std::size_t>(m_record.content.size());
    const quint32 sum = crc32(m_record.content.constData(), size, crc32(head.constData(), 8));
    m_isDamaged = size != length || sum != numberAt<quint32>(head, 8);
    m_position += m_isDamaged ? 0 : recordHeadSize + qint64(length);
    return !m_isDamaged;
}

bool RecordingReader::next(RecordedSet &set)
{
    set.triggers.clear();
    set.lateTriggers.clear();
    m_triggerTimes.clear();
    set.beginsRun = m_isRunDue;
    if (!readSet(set)) {
        endRun(set);
        return false;
    }
    m_isRunDue = false;
    return true;
}

bool RecordingReader::readSet(RecordedSet &set)
{
    bool isSet = false;
    while (!isSet) {
        const qint64 begin = m_position;
        if (m_isDamaged || !nextRecord()) {
            return false;
        }
        if (!takeRecord(set, isSet)) {
            m_isDamaged = true;
            m_position = begin;
            return false;
        }
    }
    return true;
}

void RecordingReader::takeTrigger(RecordedSet &set)
{
    const QJsonObject trigger = QJsonDocument::fromJson(m_record.content).object();
    set.triggers.append(trigger.value(QLatin1String("on")).toString());
    m_triggerTimes.append(trigger.value(QLatin1String("time")).toString());
}

/// The triggers that no set of their run has come behind.
void RecordingReader::endRun(RecordedSet &set)
{
    for (int i = 0; i < set.triggers.size(); ++i) {
        set.lateTriggers.append({set.triggers[i], m_triggerTimes[i]});
    }
    set.triggers.clear();
    m_triggerTimes.clear();
}

/// False if the record cannot stand where it does.
bool RecordingReader::takeRecord(RecordedSet &set, bool &isSet)
{
    switch (m_record.kind) {
    case Run:
        endRun(set);
        m_isRunDue = true;
        m_hasImage = false;
        set.beginsRun = true;
        return true;
    case Trigger: takeTrigger(set); return true;
    case WholeSet: isSet = true; return takeWhole(set);
    case ChangedSet: isSet = true; return takeChanged(set);
    default: return true;
    }
}

bool RecordingReader::takeWhole(RecordedSet &set)
{
    const QByteArray &content = m_record.content;
    if (quint64(content.size()) != setHeadSize + m_layout.size()) {
        return false;
    }
    set.facts = factsOf(content);
    set.image = content.mid(setHeadSize);
    set.changed.resize(m_layout.places().size());
    std::iota(set.changed.begin(), set.changed.end(), 0);
    m_hasImage = true;
    return true;
}

bool RecordingReader::takeChanged(RecordedSet &set)
{
    const QByteArray &content = m_record.content;
    if (!m_hasImage || content.size() < setHeadSize
        || quint64(set.image.size()) != m_layout.size()) {
        return false;
    }
    set.facts = factsOf(content);
    return applyChanges(m_layout, content.constData() + setHeadSize, content.size() - setHeadSize,
                        set.image, set.changed);
}

QString RecordingReader::problem() const
{
    if (m_isDamaged) {
        return QStringLiteral("is damaged at byte %1; the sets before it are read").arg(m_position);
    }
    return m_isCutOff ? QStringLiteral("ends in a record that is not whole, at byte %1; its "
                                       "recorder was ended")
                            .arg(m_position)
                      : QString();
}

void requireWhole(const RecordingReader &reader)
{
    if (reader.isDamaged()) {
        refusePath(ExitCode::InputOutputFile, reader.path(), reader.problem());
    }
    if (reader.isCutOff()) {
        writeErrorLine(QStringLiteral("tessel: note: %1: %2").arg(reader.path(), reader.problem()));
    }
}
