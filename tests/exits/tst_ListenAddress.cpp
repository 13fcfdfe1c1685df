#include "http/ListenAddress.h"
#include "service/Refusal.h"

#include <QtTest>

#include <fcntl.h>
#include <netinet/in.h>
#include <unistd.h>

namespace {

/// A socket that listens until its end; -1 with the refusal if it does not.
class Listening
{
public:
    explicit Listening(const QString &text)
    {
        try {
            const ListenAddress address = ListenAddress::fromText(text);
            m_socket = address.listen();
            port = ListenAddress::portOf(m_socket);
            authority = address.urlAuthority(port);
        } catch (const Refusal &thrown) {
            refusal = thrown.text;
            code = static_cast<int>(thrown.code);
        }
    }
    ~Listening()
    {
        if (m_socket >= 0) {
            ::close(m_socket);
        }
    }

    Listening(const Listening &) = delete;
    Listening &operator=(const Listening &) = delete;

    int socket() const { return m_socket; }

    quint16 port = 0;
    QString authority;
    QString refusal;
    int code = 0;

private:
    int m_socket = -1;
};

bool hasVersion6()
{
    const int socket = ::socket(AF_INET6, SOCK_STREAM, 0);
    sockaddr_in6 address{};
    address.sin6_family = AF_INET6;
    address.sin6_addr = in6addr_loopback;
    const bool isBound = socket >= 0
                         && bind(socket, reinterpret_cast<sockaddr *>(&address), sizeof address)
                                == 0;
    if (socket >= 0) {
        ::close(socket);
    }
    return isBound;
}

} // namespace

/// Where a program of exits/ listens.
class tst_ListenAddress : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void whatIsNoAddressIsRefused_data();
    void whatIsNoAddressIsRefused();
    void portZeroGivesAFreeOne();
    void addressOfVersionSixStandsInBrackets();
    void addressInUseIsRefused();
    void addressOfAnotherMachineIsRefused();
    void nameThatNobodyKnowsIsRefused();
    void socketIsNotInherited();
    void equalAddressesAreEqual();
};

void tst_ListenAddress::whatIsNoAddressIsRefused_data()
{
    QTest::addColumn<QString>("text");

    for (const char *text : {"", "127.0.0.1", "9200", "127.0.0.1:", "127.0.0.1:http",
                             "127.0.0.1:65536", "127.0.0.1:-1", "::1:9200", "[]:9200", "[::1]"}) {
        QTest::newRow(text) << QString::fromLatin1(text);
    }
}

void tst_ListenAddress::whatIsNoAddressIsRefused()
{
    QFETCH(QString, text);

    const Listening listening(text);

    QCOMPARE(listening.refusal,
             QStringLiteral("'%1' is no ADDRESS:PORT; write 127.0.0.1:9200, [::1]:9200 or :9200")
                 .arg(text));
    QCOMPARE(listening.code, 2);
}

void tst_ListenAddress::portZeroGivesAFreeOne()
{
    const Listening first(QStringLiteral("127.0.0.1:0"));
    const Listening second(QStringLiteral("127.0.0.1:0"));

    QCOMPARE(first.refusal, QString());
    QVERIFY(first.port != 0 && second.port != 0 && first.port != second.port);
    QCOMPARE(first.authority, QStringLiteral("127.0.0.1:%1").arg(first.port));
}

void tst_ListenAddress::addressOfVersionSixStandsInBrackets()
{
    if (!hasVersion6()) {
        QSKIP("needs IPv6", );
    }
    const Listening listening(QStringLiteral("[::1]:0"));

    QCOMPARE(listening.refusal, QString());
    QCOMPARE(listening.authority, QStringLiteral("[::1]:%1").arg(listening.port));
}

void tst_ListenAddress::addressInUseIsRefused()
{
    const Listening first(QStringLiteral("127.0.0.1:0"));

    const Listening second(first.authority);

    QCOMPARE(second.refusal,
             QStringLiteral("cannot listen on %1: Address already in use; another program listens "
                            "there; choose another port")
                 .arg(first.authority));
    QCOMPARE(second.code, 4);
}

void tst_ListenAddress::addressOfAnotherMachineIsRefused()
{
    // Of a block that is kept for documents.
    const Listening listening(QStringLiteral("192.0.2.1:9200"));

    QCOMPARE(listening.refusal,
             QStringLiteral("cannot listen on 192.0.2.1:9200: Cannot assign requested address; "
                            "this machine has no such address; see 'ip address'"));
}

void tst_ListenAddress::nameThatNobodyKnowsIsRefused()
{
    const Listening listening(QStringLiteral("no.such.name.invalid:9200"));

    QVERIFY2(listening.refusal.startsWith(
                 QStringLiteral("cannot listen on no.such.name.invalid:9200: ")),
             qPrintable(listening.refusal));
    QVERIFY(listening.refusal.endsWith(QStringLiteral("; name an address of this machine")));
}

void tst_ListenAddress::socketIsNotInherited()
{
    const Listening listening(QStringLiteral("127.0.0.1:0"));

    QCOMPARE(fcntl(listening.socket(), F_GETFD) & FD_CLOEXEC, FD_CLOEXEC);
    QCOMPARE(fcntl(listening.socket(), F_GETFL) & O_NONBLOCK, O_NONBLOCK);
}

void tst_ListenAddress::equalAddressesAreEqual()
{
    const auto of = [](const char *text) {
        return ListenAddress::fromText(QString::fromLatin1(text));
    };

    QVERIFY(of("[::1]:9200") == of("[::1]:9200"));
    QVERIFY(!(of("[::1]:9200") == of("[::1]:9201")));
    QVERIFY(!(of("localhost:9200") == of(":9200")));
}

QTEST_GUILESS_MAIN(tst_ListenAddress)
#include "tst_ListenAddress.moc"
