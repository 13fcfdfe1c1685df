#include "metrics/MetricsProgram.h"
#include "service/ExitMain.h"
#include "service/Refusal.h"
#include "service/ServiceLog.h"

#include <QCoreApplication>

namespace {

int run(const Settings &settings, const QStringList &words)
{
    if (settings.settings().flag(QStringLiteral("once"))) {
        ServiceLog::leaveNoticesOut();
        MetricsProgram(words).printOnce();
        return static_cast<int>(ExitCode::Done);
    }
    // Before anything that has a thread, so that each of them leaves the signals alone.
    Service service;
    MetricsProgram program(words);
    program.serve(service);
    return QCoreApplication::exec();
}

} // namespace

int main(int argc, char *argv[])
{
    return runExit(argc, argv, metricsSyntax(), run);
}
