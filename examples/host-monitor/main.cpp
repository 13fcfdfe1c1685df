#include "HostMonitor.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QLoggingCategory>
#include <QSocketNotifier>
#include <QTextStream>
#include <QTimer>

#include <csignal>

#include <sys/signalfd.h>
#include <unistd.h>

namespace {

/// A descriptor that can be read from as soon as the program is asked to end.
int openEndingSignals()
{
    sigset_t signals;
    sigemptyset(&signals);
    for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
        sigaddset(&signals, signal);
    }
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    return signalfd(-1, &signals, SFD_CLOEXEC);
}

struct Options
{
    QString descriptionPath;
    QString root;
    int interval = 0;
    /// 0: no end.
    int count = 0;
};

int positiveNumber(QCommandLineParser &parser, const QString &option)
{
    bool ok = false;
    const int number = parser.value(option).toInt(&ok);
    if (!ok || number < 1) {
        QTextStream(stderr) << "host-monitor: --" << option << " takes a number above 0, not '"
                            << parser.value(option) << "'\n";
        std::exit(2);
    }
    return number;
}

Options parseOptions(const QCoreApplication &application)
{
    QCommandLineParser parser;
    parser.setApplicationDescription(
        QStringLiteral("Measures this machine and publishes each round as one set."));
    parser.addHelpOption();
    parser.addPositionalArgument(QStringLiteral("FILE"), QStringLiteral("host.process.json"));
    parser.addOptions({
        {QStringLiteral("interval"), QStringLiteral("Milliseconds between two rounds (1000)."),
         QStringLiteral("MS"), QStringLiteral("1000")},
        {QStringLiteral("count"), QStringLiteral("End after so many rounds."), QStringLiteral("N")},
        {QStringLiteral("root"), QStringLiteral("Read proc/ and sys/ below this folder (/)."),
         QStringLiteral("DIR"), QStringLiteral("/")},
    });
    parser.process(application);
    if (parser.positionalArguments().size() != 1) {
        QTextStream(stderr) << "host-monitor: name one description file; see --help\n";
        std::exit(2);
    }
    Options options;
    options.descriptionPath = parser.positionalArguments().constFirst();
    options.root = parser.value(QStringLiteral("root"));
    options.interval = positiveNumber(parser, QStringLiteral("interval"));
    if (parser.isSet(QStringLiteral("count"))) {
        options.count = positiveNumber(parser, QStringLiteral("count"));
    }
    return options;
}

void printReady(const HostMonitor &monitor, int interval)
{
    QTextStream(stdout) << "publishing " << monitor.key() << ": " << monitor.numberOfLeaves()
                        << " leaves every " << interval << " ms; SIGINT or SIGTERM ends it\n";
}

} // namespace

int main(int argc, char *argv[])
{
    const QCoreApplication application(argc, argv);
    const Options options = parseOptions(application);
    QLoggingCategory::setFilterRules(QStringLiteral("default.debug=false"));
    // Before the region is created, so that no signal ends the program while it is there.
    const int endingSignals = openEndingSignals();
    std::signal(SIGPIPE, SIG_IGN);
    HostMonitor monitor(options.root);
    if (!monitor.start(options.descriptionPath) || !monitor.publishRound()) {
        QTextStream(stderr) << "host-monitor: cannot publish by " << options.descriptionPath
                            << '\n';
        return 1;
    }
    printReady(monitor, options.interval);

    QSocketNotifier endNotifier(endingSignals, QSocketNotifier::Read);
    QObject::connect(&endNotifier, &QSocketNotifier::activated, &QCoreApplication::quit);
    QTimer timer;
    int rounds = 1;
    QObject::connect(&timer, &QTimer::timeout, [&] {
        if (rounds++ == options.count) {
            QCoreApplication::quit();
        } else if (!monitor.publishRound()) {
            QCoreApplication::exit(1);
        }
    });
    timer.setTimerType(Qt::PreciseTimer);
    timer.start(options.interval);
    return QCoreApplication::exec();
}
