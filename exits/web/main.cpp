#include "service/ExitMain.h"
#include "web/WebProgram.h"

#include <QCoreApplication>

namespace {

int run(const Settings & /*settings*/, const QStringList &words)
{
    // Before anything that has a thread, so that each of them leaves the signals alone.
    Service service;
    WebProgram program(words);
    program.serve(service);
    return QCoreApplication::exec();
}

} // namespace

int main(int argc, char *argv[])
{
    return runExit(argc, argv, WebSettings::syntax(), run);
}
