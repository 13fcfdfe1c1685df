#include "service/ExitMain.h"

#include "service/Refusal.h"
#include "service/ServiceLog.h"
#include "service/StandardOutput.h"

#include <QCoreApplication>
#include <QTextCodec>

#include <csignal>
#include <exception>

namespace {

QStringList typedWords(int argc, char *argv[])
{
    QStringList words;
    for (int i = 1; i < argc; ++i) {
        words.append(QString::fromUtf8(argv[i]));
    }
    return words;
}

int run(const ProgramSyntax &syntax, const QStringList &words, const ExitWork &work)
{
    const Settings settings = Settings::fromCommandLine(syntax, words);
    if (settings.isHelpAsked()) {
        writeToStandardOutput(Settings::helpText(syntax).toUtf8());
        return static_cast<int>(ExitCode::Done);
    }
    if (settings.isVersionAsked()) {
        writeToStandardOutput(syntax.program.toUtf8() + " " TESSEL_VERSION "\n");
        return static_cast<int>(ExitCode::Done);
    }
    return work(settings, words);
}

} // namespace

int runExit(int argc, char *argv[], const ProgramSyntax &syntax, const ExitWork &work)
{
    const QCoreApplication application(argc, argv);
    QTextCodec::setCodecForLocale(QTextCodec::codecForName("UTF-8"));
    // Whoever has gone is told by the write.
    std::signal(SIGPIPE, SIG_IGN);
    std::signal(SIGXFSZ, SIG_IGN);
    ServiceLog::start(syntax.program);
    try {
        return run(syntax, typedWords(argc, argv), work);
    } catch (const Refusal &refusal) {
        ServiceLog::error(refusal.text);
        return static_cast<int>(refusal.code);
    } catch (const std::exception &exception) {
        ServiceLog::error(
            QStringLiteral("internal: %1").arg(QString::fromLocal8Bit(exception.what())));
    }
    return static_cast<int>(ExitCode::Internal);
}
