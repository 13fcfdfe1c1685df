// The same hand-over through iceoryx, whose subscriber polls as well. Its broker is started here and
// ends with the program.

#include "HandOver.h"

#include <QByteArray>
#include <QElapsedTimer>
#include <QFile>
#include <QProcess>
#include <QTemporaryDir>

#include <cstdlib>
#include <memory>
#include <optional>
#include <string>
#include <utility>

#include <iceoryx_hoofs/log/logmanager.hpp>
#include <iceoryx_posh/popo/publisher.hpp>
#include <iceoryx_posh/popo/subscriber.hpp>
#include <iceoryx_posh/runtime/posh_runtime.hpp>

namespace {

/// A value with its state, as in a slot.
struct Sample
{
    double value;
    quint32 errorType;
};

iox::capro::ServiceDescription service()
{
    return {"Device", "Tank", "Pressure"};
}

void joinBroker(const char *role)
{
    iox::log::LogManager::GetLogManager().SetDefaultLogLevel(
        iox::log::LogLevel::kError, iox::log::LogLevelOutput::kHideLogLevel);
    const std::string name = "tesselBenchmark" + std::string(role) + std::to_string(getpid());
    iox::runtime::PoshRuntime::initRuntime(
        iox::RuntimeName_t(iox::cxx::TruncateToCapacity, name.c_str()));
}

class Broker
{
public:
    Broker()
    {
        QFile file(m_directory.filePath(QStringLiteral("broker.toml")));
        if (file.open(QIODevice::WriteOnly)) {
            file.write("[general]\nversion = 1\n[[segment]]\n[[segment.mempool]]\n"
                       "size = 128\ncount = 1000\n");
            file.close();
        }
        m_process.start(QStringLiteral("iox-roudi"), {QStringLiteral("-m"), QStringLiteral("off"),
                                                      QStringLiteral("-c"), file.fileName()});
        QByteArray said;
        while (!said.contains("ready for clients") && m_process.waitForReadyRead(10000)) {
            said += m_process.readAllStandardOutput();
        }
        m_isReady = said.contains("ready for clients");
    }
    ~Broker()
    {
        m_process.terminate();
        m_process.waitForFinished(10000);
    }

    Broker(const Broker &) = delete;
    Broker &operator=(const Broker &) = delete;

    bool isReady() const { return m_isReady; }

private:
    QTemporaryDir m_directory;
    QProcess m_process;
    bool m_isReady = false;
};

class PollingSubscriber
{
public:
    PollingSubscriber()
    {
        joinBroker("Reader");
        m_subscriber = std::make_unique<iox::popo::Subscriber<Sample>>(service());
    }

    quint64 operator()()
    {
        m_subscriber->take().and_then(
            [this](const auto &sample) { m_number = static_cast<quint64>(sample->value); });
        return m_number;
    }

private:
    std::unique_ptr<iox::popo::Subscriber<Sample>> m_subscriber;
    quint64 m_number = 0;
};

/// The publisher's end. Its reader leaves with it: a broker that misses a process fails at its end.
class Link
{
public:
    explicit Link(HandOver &handOver) : m_handOver(handOver)
    {
        joinBroker("Writer");
        m_publisher = std::make_unique<iox::popo::Publisher<Sample>>(service());
        QElapsedTimer timer;
        timer.start();
        // The broker brings the two together some time after both are there.
        while (!m_publisher->hasSubscribers() && timer.elapsed() < 10000) { }
    }
    ~Link() { m_handOver.end(); }

    Link(const Link &) = delete;
    Link &operator=(const Link &) = delete;

    bool isReady() const { return m_publisher->hasSubscribers(); }

    /// Takes room for a message and fills it.
    void prepare(quint64 number)
    {
        m_publisher->loan().and_then([this, number](auto &sample) {
            sample->value = static_cast<double>(number);
            sample->errorType = 0;
            m_sample.emplace(std::move(sample));
        });
    }
    /// Sends what was prepared.
    void publish()
    {
        if (m_sample) {
            m_sample->publish();
            m_sample.reset();
        }
    }

private:
    HandOver &m_handOver;
    std::unique_ptr<iox::popo::Publisher<Sample>> m_publisher;
    std::optional<iox::popo::Sample<Sample>> m_sample;
};

/// Once for the program, as a process joins its broker only once. Null if there is none, and the row
/// says why.
struct Exchange
{
    HandOver &handOver;
    Link *link;
};

Exchange exchange(benchmark::State &state)
{
    // In this order, so that the reader does not inherit the broker, and the broker ends after all
    // that joined it.
    static HandOver handOver([] { return PollingSubscriber(); }, [] { std::exit(0); });
    static Broker broker;
    if (!broker.isReady()) {
        state.SkipWithError("iox-roudi did not start");
        return {handOver, nullptr};
    }
    static Link link(handOver);
    if (!link.isReady()) {
        state.SkipWithError("the subscriber did not find its publisher");
        return {handOver, nullptr};
    }
    return {handOver, &link};
}

/// A message that was taken and filled before the clock starts.
void publishThroughBroker(benchmark::State &state)
{
    const auto [handOver, link] = exchange(state);
    if (link == nullptr) {
        return;
    }
    measureHandOver(
        state, handOver, [link = link](quint64 number) { link->prepare(number); },
        [link = link](quint64) { link->publish(); });
}

void fillAndPublishThroughBroker(benchmark::State &state)
{
    const auto [handOver, link] = exchange(state);
    if (link == nullptr) {
        return;
    }
    measureHandOver(
        state, handOver, [](quint64) {},
        [link = link](quint64 number) {
            link->prepare(number);
            link->publish();
        });
}

} // namespace

BENCHMARK(publishThroughBroker)
    ->Name("exchange/publishToReader/peer-iceoryx")
    ->UseManualTime()
    ->Iterations(20);
BENCHMARK(fillAndPublishThroughBroker)
    ->Name("exchange/writeAndPublish/peer-iceoryx")
    ->UseManualTime()
    ->Iterations(20);
