#include "metrics/MetricsProgram.h"

#include "service/Refusal.h"
#include "service/ServiceLog.h"
#include "service/Serving.h"
#include "service/StandardOutput.h"

#include <utility>

namespace {

/// Milliseconds. Nobody but those who ask wants a set, so a publisher is woken as rarely as that.
constexpr int leastInterval = 1000;

HttpServer::Limits limitsOf(const SettingGroup &settings)
{
    HttpServer::Limits limits;
    limits.connections = static_cast<int>(settings.number(QStringLiteral("connections")));
    limits.time = std::chrono::seconds(settings.number(QStringLiteral("timeout")));
    return limits;
}

HttpResponse plainAnswer(int status, const char *text)
{
    HttpResponse response;
    response.status = status;
    response.body = text;
    return response;
}

void warnOfUnused(const UrlChoice &choice, const char *key, const RegionFollower &region)
{
    QStringList urls;
    for (const auto &leaf : region.leaves()) {
        urls.append(leaf.url);
    }
    const QString unused = choice.findUnused(urls);
    if (!unused.isEmpty()) {
        ServiceLog::warning(QStringLiteral("%1 '%2' leads to no leaf of %3; 'tessel get' shows "
                                           "their URLs")
                                .arg(QLatin1String(key), unused, region.path()));
    }
}

} // namespace

ProgramSyntax metricsSyntax()
{
    using Type = SettingSyntax::Type;
    constexpr qint64 mostConnections = 1000;
    constexpr qint64 mostSeconds = 3600;
    ProgramSyntax syntax;
    syntax.program = QStringLiteral("tessel-metrics");
    syntax.summary = QStringLiteral(
        "Serve the values of a region as metrics, at /metrics, for Prometheus and the like.");
    syntax.settings = {
        {QStringLiteral("listen"), Type::Text, QStringLiteral("ADDRESS:PORT"),
         QStringLiteral("Where to answer; port 0 lets the system choose."),
         QStringLiteral("127.0.0.1:9200")},
        {QStringLiteral("description"),
         Type::Text,
         QStringLiteral("FILE|DIR"),
         QStringLiteral("The description, unless it stands alone on the command line."),
         {}},
        {QStringLiteral("url"),
         Type::List,
         QStringLiteral("URL"),
         QStringLiteral("Only these leaves or nodes, * and ** as anywhere; may be repeated."),
         {}},
        {QStringLiteral("except"),
         Type::List,
         QStringLiteral("URL"),
         QStringLiteral("Leave these out; may be repeated."),
         {}},
        {QStringLiteral("mirror"),
         Type::List,
         QStringLiteral("FILE"),
         QStringLiteral("Tell what the status file of a mirror holds as well; may be repeated."),
         {}},
        {QStringLiteral("connections"), Type::Number, QStringLiteral("N"),
         QStringLiteral("Connections at once; others are answered 503."), QStringLiteral("16"), 1,
         mostConnections},
        {QStringLiteral("timeout"), Type::Number, QStringLiteral("SECONDS"),
         QStringLiteral("For a whole request, and for silence between two."), QStringLiteral("30"),
         1, mostSeconds},
        {QStringLiteral("once"),
         Type::Flag,
         {},
         QStringLiteral("Print the metrics of one set and end."),
         QStringLiteral("no"),
         0,
         0,
         true}};
    syntax.examples = QStringLiteral("  tessel metrics --listen 127.0.0.1:9200 plant.process.json\n"
                                     "  tessel metrics --once plant.process.json > plant.prom\n"
                                     "  tessel metrics --config /etc/tessel/metrics/plant.conf\n");
    return syntax;
}

MetricsProgram::MetricsProgram(const QStringList &words)
    : m_words(words)
    , m_settings(Settings::fromCommandLine(metricsSyntax(), words))
    , m_setup(prepare(m_settings))
{
    choose();
}

MetricsProgram::Setup MetricsProgram::prepare(const Settings &settings) const
{
    const SettingGroup &group = settings.settings();
    Setup setup;
    setup.choice = {UrlChoice(group.list(QStringLiteral("url"))),
                    UrlChoice(group.list(QStringLiteral("except")))};
    setup.mirrors = group.list(QStringLiteral("mirror"));
    setup.mirrors.removeDuplicates();
    const QString path = settings.description();
    setup.region = m_setup.region && m_setup.region->path() == path
                       ? m_setup.region
                       : std::make_shared<RegionFollower>(path, leastInterval,
                                                          RegionFollower::Use::Reading);
    return setup;
}

void MetricsProgram::listen(const Settings &settings, Setup &setup)
{
    const SettingGroup &group = settings.settings();
    const auto address = ListenAddress::fromText(group.text(QStringLiteral("listen")));
    const auto limits = limitsOf(group);
    setup.server = m_setup.server;
    if (!setup.server || !(setup.server->address() == address)) {
        setup.server = std::make_shared<HttpServer>(
            address, limits, [this](const HttpRequest &request) { return answer(request); });
    }
    setup.server->setLimits(limits);
}

void MetricsProgram::choose()
{
    const auto take = [this] { m_leaves = chosenLeaves(*m_setup.region, m_setup.choice); };
    disconnect(m_setup.region.get(), nullptr, this, nullptr);
    connect(m_setup.region.get(), &RegionFollower::leavesChanged, this, take);
    take();
    warnOfUnused(m_setup.choice.taken, "url", *m_setup.region);
    warnOfUnused(m_setup.choice.left, "except", *m_setup.region);
}

void MetricsProgram::printOnce()
{
    writeToStandardOutput(
        metricsText(*m_setup.region, m_leaves, MetricsForm::Prometheus, m_setup.mirrors));
}

void MetricsProgram::serve(Service &service)
{
    Setup setup = m_setup;
    listen(m_settings, setup);
    adopt(std::move(setup));
    keepServing(service, this, {[this] { readAgain(); }, [this] { return statusText(); }});
}

void MetricsProgram::readAgain()
{
    const Settings settings = Settings::fromCommandLine(metricsSyntax(), m_words);
    Setup setup = prepare(settings);
    listen(settings, setup);
    m_settings = settings;
    adopt(std::move(setup));
}

void MetricsProgram::adopt(Setup setup)
{
    const bool isOtherServer = setup.server != m_setup.server;
    m_setup = std::move(setup);
    choose();
    if (isOtherServer) {
        ServiceLog::notice(statusText());
    }
}

QString MetricsProgram::statusText() const
{
    const auto &server = *m_setup.server;
    return QStringLiteral("serving http://%1/metrics of %2")
        .arg(server.address().urlAuthority(server.port()), m_setup.region->path());
}

HttpResponse MetricsProgram::answer(const HttpRequest &request)
{
    if (request.path != "/metrics" && request.path != "/") {
        return plainAnswer(404, "not here; the metrics are at /metrics\n");
    }
    if (request.method != "GET" && request.method != "HEAD") {
        HttpResponse refused = plainAnswer(405, "only GET and HEAD\n");
        refused.headers = {{"Allow", "GET, HEAD"}};
        return refused;
    }
    HttpResponse response;
    if (request.path == "/") {
        response.contentType = "text/html; charset=utf-8";
        response.body = "<!DOCTYPE html><html lang=\"en\"><title>tessel-metrics</title>"
                        "<p><a href=\"/metrics\">Metrics</a></p></html>\n";
        return response;
    }
    const MetricsForm form = formAccepted(request.header("Accept"));
    m_setup.region->lookNow();
    response.contentType = contentTypeOf(form);
    response.body = metricsText(*m_setup.region, m_leaves, form, m_setup.mirrors);
    response.headers = {{"Cache-Control", "no-store"}, {"Vary", "Accept"}};
    return response;
}
