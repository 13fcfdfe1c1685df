#pragma once

#include "recordings/SetImage.h"

#include <QFile>
#include <QIODevice>

#include <memory>

/// One set of a recording, and what stands before it.
struct RecordedSet
{
    SetFacts facts;
    /// Whether a run begins with it: when the recorder began, and behind each pause in which it kept nothing.
    bool beginsRun = false;
    /// What it was that had the recorder save what was before and after, in the words of the command line.
    QStringList triggers;
    /// A trigger behind the last set of its run, such as that of a gap, which comes without one.
    struct LateTrigger
    {
        QString on;
        QString time; ///< ISO 8601
    };
    /// Those of the run before, where a run begins with this set, or of the last run, once there is no next set.
    QVector<LateTrigger> lateTriggers;
    QByteArray image; ///< all values, as ImageLayout has them
    std::vector<int>
        changed; ///< indices of the values that are not as before; all at the beginning of a run
};

/// Reads a recording set by set, whatever its bytes are: nothing is believed that does not fit into the file.
///
/// Memory: two of its records at most. Throws a Failure if it is no recording; where it is damaged behind its
/// head, it ends with the last set before.
class RecordingReader
{
public:
    explicit RecordingReader(const QString &path);
    /// Of what lies in a device that is open and can tell its size.
    RecordingReader(std::unique_ptr<QIODevice> device, const QString &name);

    const QString &path() const { return m_path; }
    const RecordingHead &head() const { return m_head; }
    const ImageLayout &layout() const { return m_layout; }

    /// The next set, in the place of the one before, which is needed. False behind the last; only its late
    /// triggers count then.
    bool next(RecordedSet &set);
    /// Back to the first set.
    void rewind();

    /// Where the record behind those that were read begins, in bytes.
    qint64 position() const { return m_position; }
    /// Once next() said no: whether it was because of bytes that are none of a recording. A last record that is
    /// not whole is no damage, but what a killed recorder leaves.
    bool isDamaged() const { return m_isDamaged; }
    bool isCutOff() const { return m_isCutOff; }
    /// In words; empty if it ended as it should.
    QString problem() const;

private:
    struct Record
    {
        quint32 kind;
        QByteArray content;
    };

    void readHead();
    [[noreturn]] void refuse(const QString &reason) const;
    bool nextRecord();
    bool takeRecord(RecordedSet &set, bool &isSet);
    void takeTrigger(RecordedSet &set);
    void endRun(RecordedSet &set);
    bool readSet(RecordedSet &set);
    bool takeWhole(RecordedSet &set);
    bool takeChanged(RecordedSet &set);

    QString m_path;
    std::unique_ptr<QIODevice> m_device;
    RecordingHead m_head;
    ImageLayout m_layout{{}};
    qint64 m_begin = 0; ///< of the first record behind the head
    qint64 m_position = 0;
    bool m_isDamaged = false;
    bool m_isCutOff = false;
    bool m_hasImage = false;    ///< a whole set came in this run
    bool m_isRunDue = true;     ///< the next set begins one
    QStringList m_triggerTimes; ///< of the triggers of the next set
    Record m_record;
};

/// Behind the last set: notes a recording whose end is missing, and throws a Failure of a damaged one.
void requireWhole(const RecordingReader &reader);
