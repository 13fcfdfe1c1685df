#include "RateRun.h"

#include <QCoreApplication>
#include <QLoggingCategory>

#include <csignal>
#include <cstdio>

int main(int argc, char *argv[])
{
    const QCoreApplication application(argc, argv);
    QLoggingCategory::setFilterRules(QStringLiteral("*.debug=false"));
    QString problem;
    const auto options = RateOptions::fromWords(QCoreApplication::arguments().mid(1), problem);
    if (!options) {
        std::fprintf(stderr, "script/bench-record: %s\n", qPrintable(problem));
        return 2;
    }
    struct sigaction action = {};
    action.sa_handler = RateRun::requestEnd;
    for (const int number : {SIGINT, SIGTERM, SIGHUP}) {
        ::sigaction(number, &action, nullptr);
    }
    return RateRun(*options).run();
}
