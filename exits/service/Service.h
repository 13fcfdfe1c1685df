#pragma once

#include <QObject>
#include <QTimer>

#include <csignal>

class QSocketNotifier;

/// What a program without a terminal owes to the system that runs it: it ends on SIGTERM and SIGINT, reads
/// its configuration again on SIGHUP, and tells a service manager how far it is.
///
/// Make it first, before any other thread is there, and with a QCoreApplication: from then on these
/// signals come from the event loop. Without a service manager that asks for it nothing is told.
class Service : public QObject
{
    Q_OBJECT

public:
    explicit Service(QObject *parent = nullptr);
    ~Service() override;

    /// The program does its work from now on; @p status is one line for a person.
    void tellReady(const QString &status);
    /// What it is busy with now, in one line.
    void tellStatus(const QString &status);

Q_SIGNALS:
    /// SIGHUP. The service manager was told that the configuration is read; tellReady() ends that.
    void reloadAsked();
    /// SIGTERM or SIGINT. The service manager was told that the program stops.
    void endAsked();

private:
    void takeSignals();
    void startWatchdog();

    int m_descriptor;
    sigset_t m_former;
    QSocketNotifier *m_readable;
    QTimer m_watchdog;
};
