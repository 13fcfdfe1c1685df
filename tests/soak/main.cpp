// The processes that script/soak-library starts: see CONTRIBUTING.md.

#include "soak/SoakPeer.h"

#include <cstdio>

namespace {

/// ROLE KEY double|single SLOT FOLDER [PLANT...]: FOLDER has the board, and the doors of the regions.
int runPeer(const QStringList &words)
{
    const QString folder = words.value(4) + QLatin1Char('/');
    const Soak::RegionName region{words.value(1), words.value(2) == QLatin1String("double"),
                                  folder + words.value(1) + QLatin1String(".door")};
    return Soak::SoakPeer({words.value(0), region, folder + QLatin1String("board"),
                           words.value(3).toInt(), words.mid(5)})
        .run();
}

} // namespace

int main(int argc, char **argv)
{
    QStringList words;
    for (int i = 1; i < argc; ++i) {
        words.append(QString::fromLocal8Bit(argv[i]));
    }
    if (words.value(0) == QLatin1String("--description")) {
        const bool isDoubleBuffer = words.value(2) == QLatin1String("double");
        std::puts(Torture::SetCodec::description(words.value(1), isDoubleBuffer).constData());
        return 0;
    }
    if (words.size() < 5) {
        std::fputs("soak: is started by script/soak-library\n", stderr);
        return 2;
    }
    return runPeer(words);
}
