#include "mqtt/NodeProgram.h"
#include "service/ExitMain.h"

#include <QCoreApplication>

namespace {

int run(const Settings &settings, const QStringList &words)
{
    NodeProgram program(words);
    program.start(NodeSettings::from(settings));
    return QCoreApplication::exec();
}

} // namespace

int main(int argc, char *argv[])
{
    return runExit(argc, argv, NodeSettings::syntax(), run);
}
