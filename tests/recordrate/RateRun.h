#pragma once

#include "CountedPlant.h"
#include "RateOptions.h"

#include <QProcess>
#include <QTemporaryDir>

/// What some seconds of publishing were.
struct PublishedTime
{
    quint64 sets = 0;
    quint64 late = 0; ///< times of a set that passed without one
    double seconds = 0;
    double processor = 0; ///< seconds of this process
};

/// A publisher alone, the same with `tessel record` beside it, and what is in the recording then.
class RateRun
{
public:
    explicit RateRun(const RateOptions &options);

    /// The exit code. Figures go to standard output, what is wrong to standard error.
    int run();
    /// From a handler of signals: ends it early.
    static void requestEnd(int signal);

private:
    bool startRecorder();
    bool endRecorder();
    PublishedTime publish(const char *what);
    bool publishNext(quint64 number);
    bool judge();
    int failed(const QString &reason);

    const RateOptions &m_options;
    QTemporaryDir m_folder;
    CountedPlant m_plant;
    QString m_recording;
    QProcess m_recorder;
    QString m_problem;
    bool m_isRecorded = false; ///< there is somebody to find what is planted
    quint64 m_first = 0;       ///< number of the set that the recorder found
    quint64 m_published = 0;   ///< while the recorder was there
};
