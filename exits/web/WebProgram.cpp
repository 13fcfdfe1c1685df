#include "web/WebProgram.h"

#include "service/ServiceLog.h"
#include "service/Serving.h"

#include <utility>

namespace {

constexpr int millisecondsPerSecond = 1000;

} // namespace

void WebProgram::serve(Service &service)
{
    readAgain();
    keepServing(service, this, {[this] { readAgain(); }, [this] { return statusText(); }});
}

WebProgram::Setup WebProgram::prepare() const
{
    Setup setup;
    setup.settings = WebSettings::from(Settings::fromCommandLine(WebSettings::syntax(), m_words));
    const WebSettings &former = m_setup.settings;
    const auto use = setup.settings.token.isEmpty() ? RegionFollower::Use::Reading
                                                    : RegionFollower::Use::Writing;
    const bool isSameRegion = m_setup.feed && former.path == setup.settings.path
                              && former.rate == setup.settings.rate
                              && m_setup.feed->region().use() == use;
    setup.feed = isSameRegion
                     ? m_setup.feed
                     : std::make_shared<LiveFeed>(std::make_shared<RegionFollower>(
                         setup.settings.path, millisecondsPerSecond / setup.settings.rate, use));
    return setup;
}

std::shared_ptr<HttpServer> WebProgram::makeServer(const WebSettings &settings)
{
    auto server = std::make_shared<HttpServer>(
        settings.address, settings.limits,
        [this](const HttpRequest &request) { return m_api.answer(request); }, settings.certificate);
    server->setRefuser(WebApi::refuse);
    return server;
}

void WebProgram::listen(Setup &setup)
{
    const bool isSameAddress = m_setup.server
                               && m_setup.server->address() == setup.settings.address;
    if (!isSameAddress) {
        setup.server = makeServer(setup.settings);
        return;
    }
    setup.server = m_setup.server;
    setup.server->setCertificate(setup.settings.certificate);
}

void WebProgram::readAgain()
{
    Setup setup = prepare();
    listen(setup);
    adopt(std::move(setup));
}

void WebProgram::adopt(Setup setup)
{
    const bool isOtherServer = setup.server != m_setup.server
                               || setup.settings.certificate.isEmpty()
                                      != m_setup.settings.certificate.isEmpty();
    const bool isOtherFeed = setup.feed != m_setup.feed;
    if (isOtherFeed && m_setup.feed) {
        disconnect(m_setup.feed.get(), nullptr, this, nullptr);
    }
    m_setup = std::move(setup);
    m_api.use(m_setup.settings, m_setup.feed);
    m_setup.server->setLimits(m_setup.settings.limits);
    if (isOtherFeed) {
        // Browsers come again by themselves, and are greeted with the other region.
        m_setup.server->endStreams();
        connect(m_setup.feed.get(), &LiveFeed::newsToTell, this,
                [this] { m_setup.server->wakeStreams(); });
    }
    if (isOtherServer) {
        ServiceLog::notice(statusText());
    }
}

QString WebProgram::statusText() const
{
    const auto &server = *m_setup.server;
    return QStringLiteral("serving %1://%2/ of %3")
        .arg(m_setup.settings.certificate.isEmpty() ? QStringLiteral("http")
                                                    : QStringLiteral("https"),
             server.address().urlAuthority(server.port()), m_setup.settings.path);
}
