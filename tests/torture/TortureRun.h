#pragma once

#include <QtTest>

#include <csignal>

/// One run of the torture.
class Run
{
public:
    static constexpr int sm_bound = 900000; ///< milliseconds, long against any run here

    explicit Run(const QStringList &arguments)
    {
        m_process.setProcessChannelMode(QProcess::MergedChannels);
        m_process.start(QStringLiteral(TORTURE), arguments);
    }

    /// Lets it clean up behind itself.
    ~Run()
    {
        m_process.terminate();
        m_process.waitForFinished(sm_bound);
    }
    Run(const Run &) = delete;
    Run &operator=(const Run &) = delete;

    /// The exit code; -1 if a signal ended it, -1000 if nothing did.
    int wait()
    {
        if (!m_process.waitForFinished(sm_bound)) {
            return -1000;
        }
        m_output += m_process.readAll();
        return m_process.exitStatus() == QProcess::NormalExit ? m_process.exitCode() : -1;
    }
    QString output() const { return QString::fromUtf8(m_output); }

    /// Waits until it has told its memory key.
    QString key()
    {
        while (!m_output.contains('\n') && m_process.waitForReadyRead(sm_bound)) {
            m_output += m_process.readAll();
        }
        return QString::fromUtf8(m_output).section(QStringLiteral("key "), 1).section('\n', 0, 0);
    }
    void send(int number) const { kill(static_cast<pid_t>(m_process.processId()), number); }
    QList<QByteArray> children() const
    {
        QFile file(QStringLiteral("/proc/%1/task/%1/children").arg(m_process.processId()));
        const QByteArray text = file.open(QIODevice::ReadOnly) ? file.readAll().simplified()
                                                               : QByteArray();
        return text.isEmpty() ? QList<QByteArray>() : text.split(' ');
    }

private:
    QProcess m_process;
    QByteArray m_output;
};

inline QStringList arguments(const char *text)
{
    return QString::fromLatin1(text).split(' ');
}
