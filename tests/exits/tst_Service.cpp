#include "service/Service.h"

#include <QTemporaryDir>
#include <QtTest>

#include <algorithm>
#include <csignal>

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

// The thread that watches over the tests leaves these signals open: they are raised on this one.

namespace {

/// Stands for the service manager: the socket that NOTIFY_SOCKET names.
class ManagerSocket
{
public:
    ManagerSocket() : m_socket(::socket(AF_UNIX, SOCK_DGRAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0))
    {
        const QByteArray path = QFile::encodeName(m_folder.filePath(QStringLiteral("notify")));
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        qstrncpy(address.sun_path, path.constData(), sizeof address.sun_path);
        if (bind(m_socket, reinterpret_cast<sockaddr *>(&address), sizeof address) != 0) {
            qFatal("no socket for the service manager");
        }
        qputenv("NOTIFY_SOCKET", path);
    }
    ~ManagerSocket()
    {
        qunsetenv("NOTIFY_SOCKET");
        ::close(m_socket);
    }

    ManagerSocket(const ManagerSocket &) = delete;
    ManagerSocket &operator=(const ManagerSocket &) = delete;

    /// The next message; empty if there is none.
    QByteArray next() const
    {
        QByteArray text(4096, '\0');
        const ssize_t size = ::recv(m_socket, text.data(), static_cast<std::size_t>(text.size()),
                                    0);
        text.truncate(static_cast<int>(std::max<ssize_t>(size, 0)));
        return text;
    }

private:
    QTemporaryDir m_folder;
    int m_socket;
};

} // namespace

/// Signals and the service manager.
class tst_Service : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void managerIsToldOfReadiness();
    void hangupAsksForTheConfiguration();
    void endIsAskedFor_data();
    void endIsAskedFor();
    void endWinsOverAReload();
    void watchdogIsFed();
    void watchdogOfAnotherProcessIsNot();
    void signalsAreBlockedAsLongAsItLives();
};

void tst_Service::managerIsToldOfReadiness()
{
    const ManagerSocket manager;
    Service service;

    service.tellReady(QStringLiteral("serving ä"));
    service.tellStatus(QStringLiteral("waiting"));

    QCOMPARE(manager.next(), QByteArray("READY=1\nSTATUS=serving \xc3\xa4"));
    QCOMPARE(manager.next(), QByteArray("STATUS=waiting"));
    QCOMPARE(manager.next(), QByteArray());
}

void tst_Service::hangupAsksForTheConfiguration()
{
    const ManagerSocket manager;
    Service service;
    QSignalSpy reload(&service, &Service::reloadAsked);
    QSignalSpy end(&service, &Service::endAsked);

    ::raise(SIGHUP);

    QVERIFY(reload.wait());
    QCOMPARE(reload.count(), 1);
    QCOMPARE(end.count(), 0);
    const QByteArray told = manager.next();
    QVERIFY2(told.startsWith("RELOADING=1\nMONOTONIC_USEC="), told.constData());
    bool isNumber = false;
    QVERIFY(told.mid(told.lastIndexOf('=') + 1).toULongLong(&isNumber) > 0 && isNumber);
}

void tst_Service::endIsAskedFor_data()
{
    QTest::addColumn<int>("number");

    QTest::newRow("SIGTERM") << SIGTERM;
    QTest::newRow("SIGINT") << SIGINT;
}

void tst_Service::endIsAskedFor()
{
    QFETCH(int, number);
    const ManagerSocket manager;
    Service service;
    QSignalSpy end(&service, &Service::endAsked);

    ::raise(number);

    QVERIFY(end.wait());
    QCOMPARE(end.count(), 1);
    QCOMPARE(manager.next(), QByteArray("STOPPING=1"));
}

void tst_Service::endWinsOverAReload()
{
    Service service;
    QSignalSpy reload(&service, &Service::reloadAsked);
    QSignalSpy end(&service, &Service::endAsked);

    ::raise(SIGHUP);
    ::raise(SIGTERM);

    QVERIFY(end.wait());
    QCOMPARE(reload.count(), 0);
}

void tst_Service::watchdogIsFed()
{
    const ManagerSocket manager;
    qputenv("WATCHDOG_USEC", "20000");
    qputenv("WATCHDOG_PID", QByteArray::number(getpid()));
    const Service service;
    qunsetenv("WATCHDOG_USEC");
    qunsetenv("WATCHDOG_PID");

    QByteArrayList told;
    const auto countTold = [&] {
        for (QByteArray one = manager.next(); !one.isEmpty(); one = manager.next()) {
            told.append(one);
        }
        return told.size();
    };
    QTRY_VERIFY_WITH_TIMEOUT(countTold() >= 2, 60000);
    QCOMPARE(told.first(), QByteArray("WATCHDOG=1"));
    QCOMPARE(told.last(), QByteArray("WATCHDOG=1"));
}

void tst_Service::watchdogOfAnotherProcessIsNot()
{
    const ManagerSocket manager;
    qputenv("WATCHDOG_USEC", "2000");
    qputenv("WATCHDOG_PID", "1");
    const Service service;
    qunsetenv("WATCHDOG_USEC");
    qunsetenv("WATCHDOG_PID");

    QVERIFY(service.findChildren<QTimer *>().isEmpty()
            || !service.findChildren<QTimer *>().first()->isActive());
}

void tst_Service::signalsAreBlockedAsLongAsItLives()
{
    const auto isBlocked = [] {
        sigset_t now{};
        pthread_sigmask(SIG_BLOCK, nullptr, &now);
        return sigismember(&now, SIGTERM) == 1;
    };
    QVERIFY(!isBlocked());
    {
        const Service service;
        QVERIFY(isBlocked());
    }
    QVERIFY(!isBlocked());
}

QTEST_GUILESS_MAIN(tst_Service)
#include "tst_Service.moc"
