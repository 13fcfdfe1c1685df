#include "mirror/MirrorPrograms.h"
#include "mirror/MirrorSettings.h"
#include "service/ExitMain.h"

#include <cstdio>
#include <string>

namespace {

constexpr char help[] =
    "Usage: tessel-mirror send [OPTION...] FILE|DIR...\n"
    "       tessel-mirror receive [OPTION...] FILE|DIR...\n"
    "       tessel-mirror status [OPTION...]\n"
    "\n"
    "Keep regions of one machine on others, as ordinary regions there.\n"
    "\n"
    "Commands:\n"
    "  send     Send the newest sets of regions of this machine.\n"
    "  receive  Keep regions here like those of their sources; `timeout` without one.\n"
    "  status   Show the sources and receivers of a domain.\n"
    "\n"
    "'tessel mirror COMMAND --help' shows the options of a command.\n";

int printHelp()
{
    return std::fputs(help, stdout) < 0 || std::fflush(stdout) != 0 ? 9 : 0;
}

} // namespace

int main(int argc, char *argv[])
{
    const std::string command = argc > 1 ? argv[1] : "";
    // The word behind the program's name takes the place of the name.
    if (command == "send") {
        return runExit(argc - 1, argv + 1, sendSyntax(), runSend);
    }
    if (command == "receive") {
        return runExit(argc - 1, argv + 1, receiveSyntax(), runReceive);
    }
    if (command == "status") {
        return runExit(argc - 1, argv + 1, statusSyntax(), runStatus);
    }
    if (command == "--help" || command == "-h") {
        return printHelp();
    }
    if (command == "--version") {
        ProgramSyntax syntax;
        syntax.program = QStringLiteral("tessel-mirror");
        return runExit(argc, argv, syntax, nullptr);
    }
    std::fprintf(stderr,
                 "tessel-mirror: %s; it is send, receive or status, see 'tessel-mirror --help'\n",
                 argc > 1 ? ("unknown command '" + command + "'").c_str() : "no command");
    return 2;
}
