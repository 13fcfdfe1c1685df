#include "commandline/OtherPrograms.h"

#include "text/Failure.h"

#include <QDir>
#include <QStandardPaths>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <vector>

#include <unistd.h>

namespace {

const QLatin1String prefix("tessel-");

/// What the tool ignores for its own output is not for others to inherit.
void restoreSignals()
{
    std::signal(SIGPIPE, SIG_DFL);
    std::signal(SIGXFSZ, SIG_DFL);
}

[[noreturn]] void become(const QString &program, const QStringList &arguments)
{
    QList<QByteArray> words{QFile::encodeName(program)};
    for (const auto &argument : arguments) {
        words.append(argument.toUtf8());
    }
    std::vector<char *> argv;
    for (auto &word : words) {
        argv.push_back(word.data());
    }
    argv.push_back(nullptr);
    restoreSignals();
    execv(argv.front(), argv.data());
    // NOLINTNEXTLINE(concurrency-mt-unsafe): the text of a known code is a constant in glibc.
    const QLatin1String reason(std::strerror(errno));
    throw Failure{ExitCode::NoAccess, QStringLiteral("%1: cannot be run: %2").arg(program, reason)};
}

} // namespace

QStringList OtherPrograms::names()
{
    QStringList names;
    const QStringList folders =
        QString::fromLocal8Bit(qgetenv("PATH")).split(QLatin1Char(':'), Qt::SkipEmptyParts);
    for (const auto &folder : folders) {
        const QStringList found = QDir(folder).entryList({prefix + QLatin1Char('*')},
                                                         QDir::Files | QDir::Executable);
        for (const auto &program : found) {
            names.append(program.mid(prefix.size()));
        }
    }
    names.removeAll({});
    names.removeDuplicates();
    names.sort();
    return names;
}

void OtherPrograms::runIfThere(const QString &name, const QStringList &arguments)
{
    // A name that leads elsewhere is none of a program on the path.
    if (name.isEmpty() || name.contains(QLatin1Char('/'))) {
        return;
    }
    const QString program = QStandardPaths::findExecutable(prefix + name);
    if (!program.isEmpty()) {
        become(program, arguments);
    }
}
