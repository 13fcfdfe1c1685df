#include "ToolProcess.h"

#include <csignal>
#include <vector>

#include <sys/wait.h>
#include <unistd.h>

namespace {

constexpr int longestWait = 60 * 1000;

} // namespace

ToolResult runTool(const QStringList &arguments, const QStringList &environment)
{
    return ToolProcess(arguments, environment).finish();
}

ToolResult runToolAsAnother(const QStringList &arguments)
{
    QProcess process;
    process.start(QStringLiteral("setpriv"),
                  QStringList{QStringLiteral("--reuid=65534"), QStringLiteral("--regid=65534"),
                              QStringLiteral("--clear-groups"), QStringLiteral(TESSEL_TOOL)}
                      + arguments);
    process.waitForFinished(longestWait);
    return {process.exitCode(), QString::fromUtf8(process.readAllStandardOutput()),
            QString::fromUtf8(process.readAllStandardError())};
}

int exitCodeWithoutReader(const QStringList &arguments)
{
    QList<QByteArray> words{QByteArrayLiteral(TESSEL_TOOL)};
    for (const auto &argument : arguments) {
        words.append(argument.toUtf8());
    }
    std::vector<char *> argv;
    for (auto &word : words) {
        argv.push_back(word.data());
    }
    argv.push_back(nullptr);
    int ends[2];
    if (::pipe(ends) != 0) {
        qFatal("No pipe");
    }
    ::close(ends[0]);
    const pid_t child = ::fork();
    if (child == 0) {
        ::dup2(ends[1], STDOUT_FILENO);
        ::execv(argv.front(), argv.data());
        ::_exit(127);
    }
    ::close(ends[1]);
    int status = 0;
    ::waitpid(child, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

ToolProcess::ToolProcess(const QStringList &arguments, const QStringList &environment,
                         const QString &folder)
{
    m_process.setWorkingDirectory(folder);
    m_process.setEnvironment(QProcess::systemEnvironment() + environment);
    m_process.setStandardInputFile(QProcess::nullDevice());
    m_process.start(QStringLiteral(TESSEL_TOOL), arguments);
    if (!m_process.waitForStarted(longestWait)) {
        qFatal("The tool does not start");
    }
}

ToolProcess::~ToolProcess()
{
    if (m_process.state() != QProcess::NotRunning) {
        m_process.kill();
        m_process.waitForFinished(longestWait);
    }
}

QString ToolProcess::nextLine()
{
    while (!m_process.canReadLine() && m_process.waitForReadyRead(longestWait)) { }
    return QString::fromUtf8(m_process.readLine());
}

void ToolProcess::signal(int number)
{
    // The number of a process that has ended is 0, which would mean this whole process group.
    if (m_process.processId() > 0) {
        ::kill(static_cast<pid_t>(m_process.processId()), number);
    }
}

ToolResult ToolProcess::finish()
{
    if (m_process.state() != QProcess::NotRunning && !m_process.waitForFinished(longestWait)) {
        return {-1, QString::fromUtf8(m_process.readAllStandardOutput()),
                QStringLiteral("the tool does not end")};
    }
    const bool isKilled = m_process.exitStatus() == QProcess::CrashExit;
    return {isKilled ? -1 : m_process.exitCode(),
            QString::fromUtf8(m_process.readAllStandardOutput()),
            QString::fromUtf8(m_process.readAllStandardError())};
}
