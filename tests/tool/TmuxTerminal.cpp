#include "TmuxTerminal.h"

#include <QDeadlineTimer>
#include <QProcess>
#include <QThread>

namespace {

const QString prompt = QStringLiteral("shell>");

} // namespace

TmuxTerminal::TmuxTerminal(int columns, int rows, const QStringList &environment)
{
    QStringList shell{QStringLiteral("env"), QStringLiteral("PS1=%1 ").arg(prompt),
                      QStringLiteral("LC_ALL=C.UTF-8"), QStringLiteral("-u"),
                      QStringLiteral("NO_COLOR")};
    // Options of env stand in front of what it sets.
    shell = QStringList{shell[0], shell[3], shell[4], shell[1], shell[2]} + environment
            + QStringList{QStringLiteral("bash"), QStringLiteral("--norc"),
                          QStringLiteral("--noprofile")};
    for (auto &word : shell) {
        word = QStringLiteral("'%1'").arg(word);
    }
    tmux({QStringLiteral("-u"), QStringLiteral("-f"), QStringLiteral("/dev/null"),
          QStringLiteral("new-session"), QStringLiteral("-d"), QStringLiteral("-x"),
          QString::number(columns), QStringLiteral("-y"), QString::number(rows),
          shell.join(QLatin1Char(' '))});
    tmux({QStringLiteral("set"), QStringLiteral("-g"), QStringLiteral("status"),
          QStringLiteral("off")});
    m_isStarted = true;
    // Without the line of the status the window has one more.
    resize(columns, rows);
}

TmuxTerminal::~TmuxTerminal()
{
    close();
}

void TmuxTerminal::close()
{
    if (m_isStarted) {
        tmux({QStringLiteral("kill-server")});
        m_isStarted = false;
    }
}

bool TmuxTerminal::isReady()
{
    return waitFor(prompt);
}

QStringList TmuxTerminal::rows() const
{
    QStringList rows =
        tmux({QStringLiteral("capture-pane"), QStringLiteral("-p")}).split(QLatin1Char('\n'));
    rows.removeLast();
    return rows;
}

QString TmuxTerminal::colouredScreen() const
{
    return tmux({QStringLiteral("capture-pane"), QStringLiteral("-p"), QStringLiteral("-e")});
}

void TmuxTerminal::run(const QString &line) const
{
    type(line);
    press({QStringLiteral("Enter")});
}

void TmuxTerminal::press(const QStringList &keys) const
{
    tmux(QStringList(QStringLiteral("send-keys")) + keys);
}

void TmuxTerminal::type(const QString &text) const
{
    tmux({QStringLiteral("send-keys"), QStringLiteral("-l"), text});
}

void TmuxTerminal::resize(int columns, int rows) const
{
    tmux({QStringLiteral("resize-window"), QStringLiteral("-x"), QString::number(columns),
          QStringLiteral("-y"), QString::number(rows)});
}

QString TmuxTerminal::flags() const
{
    return tmux({QStringLiteral("display-message"), QStringLiteral("-p"),
                 QStringLiteral("#{alternate_on} #{cursor_flag}")})
        .trimmed();
}

bool TmuxTerminal::waitUntil(const std::function<bool(const QString &screen)> &isWanted) const
{
    constexpr int patience = 60000;
    constexpr int pollInterval = 20;
    const QDeadlineTimer deadline(patience);
    while (!isWanted(screen())) {
        if (deadline.hasExpired()) {
            qWarning("The terminal shows:\n%s", qPrintable(screen()));
            return false;
        }
        QThread::msleep(pollInterval);
    }
    return true;
}

bool TmuxTerminal::waitFor(const QString &text) const
{
    return waitUntil([&text](const QString &screen) { return screen.contains(text); });
}

QString TmuxTerminal::tmux(const QStringList &arguments) const
{
    QProcess process;
    process.setProgram(QStringLiteral("tmux"));
    // The socket lies in a folder that goes with this object, and its name is nobody else's.
    process.setArguments(
        QStringList{QStringLiteral("-S"), m_folder.filePath(QStringLiteral("socket"))} + arguments);
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.remove(QStringLiteral("TMUX"));
    environment.insert(QStringLiteral("TERM"), QStringLiteral("xterm-256color"));
    process.setProcessEnvironment(environment);
    process.start();
    process.closeWriteChannel();
    process.waitForFinished(60000);
    return QString::fromUtf8(process.readAllStandardOutput());
}
