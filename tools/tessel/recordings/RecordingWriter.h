#pragma once

#include "recordings/RecordingFormat.h"

/// Appends to the file of a recording: each record whole, by one write, so that whatever ends this process leaves
/// the records before it.
///
/// One process at a time has it. Every operation throws a Failure; after one the file ends behind its last whole
/// record.
class RecordingWriter
{
public:
    /// What becomes of a recording that is there. A file of another kind is never touched.
    enum class Existing { Refused, Replaced, Continued };

    /// Checks everything, and changes nothing yet.
    RecordingWriter(const QString &path, Existing existing, const RecordingHead &head);
    /// Closes the file.
    ~RecordingWriter();

    RecordingWriter(const RecordingWriter &) = delete;
    RecordingWriter &operator=(const RecordingWriter &) = delete;

    /// To be called once, before the others: makes the file, empties it, or goes to the end of its last set.
    void begin();
    /// @p set is the whole one.
    void addWholeSet(const SetFacts &facts, const QByteArray &set);
    void addChangedSet(const SetFacts &facts, const QByteArray &changes);
    void addJson(RecordingFormat::Kind kind, const QByteArray &json);
    /// Refuses a file that somebody has removed or changed meanwhile; each of the above does so as well.
    void requireUntouched() const;

    quint64 sets() const { return m_sets; }
    quint64 dropped() const { return m_dropped; }
    /// Bytes that were written.
    qint64 bytes() const { return m_bytes; }
    const QString &path() const { return m_path; }

private:
    void open();
    void lookAtFormer();
    void write(const QByteArray &bytes);
    void addSet(RecordingFormat::Kind kind, const SetFacts &facts, const QByteArray &content);
    [[noreturn]] void refuseWrite(int error) const;

    QString m_path;
    Existing m_existing;
    const RecordingHead &m_head;
    int m_file = -1;
    bool m_isFound = false; ///< a recording, before this began
    qint64 m_formerSize = 0;
    qint64 m_end = 0; ///< of the last whole record
    qint64 m_bytes = 0;
    quint64 m_sets = 0;
    quint64 m_dropped = 0;
    QByteArray m_record; ///< kept from one to the next, for its memory
};
