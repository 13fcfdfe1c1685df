#include "service/Refusal.h"
#include "service/ServiceLog.h"
#include "web/WebProgram.h"

#include <QCoreApplication>
#include <QTextCodec>

#include <csignal>
#include <cstdio>
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

int run(const QStringList &words)
{
    const ProgramSyntax syntax = WebSettings::syntax();
    const Settings settings = Settings::fromCommandLine(syntax, words);
    if (settings.isHelpAsked()) {
        std::fputs(Settings::helpText(syntax).toUtf8().constData(), stdout);
        return static_cast<int>(ExitCode::Done);
    }
    if (settings.isVersionAsked()) {
        std::puts("tessel-web " TESSEL_VERSION);
        return static_cast<int>(ExitCode::Done);
    }
    // Before anything that has a thread, so that each of them leaves the signals alone.
    Service service;
    WebProgram program(words);
    program.serve(service);
    return QCoreApplication::exec();
}

} // namespace

int main(int argc, char *argv[])
{
    const QCoreApplication application(argc, argv);
    QTextCodec::setCodecForLocale(QTextCodec::codecForName("UTF-8"));
    // Whoever has gone is told by the write.
    std::signal(SIGPIPE, SIG_IGN);
    std::signal(SIGXFSZ, SIG_IGN);
    ServiceLog::start(QStringLiteral("tessel-web"));
    try {
        return run(typedWords(argc, argv));
    } catch (const Refusal &refusal) {
        ServiceLog::error(refusal.text);
        return static_cast<int>(refusal.code);
    } catch (const std::exception &exception) {
        ServiceLog::error(
            QStringLiteral("internal: %1").arg(QString::fromLocal8Bit(exception.what())));
    }
    return static_cast<int>(ExitCode::Internal);
}
