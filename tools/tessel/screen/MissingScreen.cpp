#include "screen/ValueScreen.h"
#include "text/Failure.h"

// Stands for the full screen where the library that draws it was not there to build with.

void requireScreen()
{
    throw Failure{ExitCode::WrongUse,
                  QStringLiteral("watch: this tessel was built without --tui; build it where "
                                 "ncurses is (Debian: libncurses-dev), or leave --tui out")};
}

void showOnScreen(const DescriptionSource & /*description*/, const ScreenOrder & /*order*/,
                  SignalWait & /*signals*/)
{
    requireScreen();
}
