#include "PseudoTerminal.h"

#include <QtGlobal>

#include <array>
#include <csignal>
#include <cstdlib>
#include <vector>

#include <pty.h>
#include <sys/ioctl.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

winsize sizeOf(int rows, int columns)
{
    return {static_cast<unsigned short>(rows), static_cast<unsigned short>(columns), 0, 0};
}

} // namespace

PseudoTerminal::PseudoTerminal(const QStringList &arguments, int rows, int columns,
                               const QStringList &environment)
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
    const winsize size = sizeOf(rows, columns);
    m_child = ::forkpty(&m_fd, nullptr, nullptr, &size);
    if (m_child < 0) {
        qFatal("No pseudo terminal");
    }
    if (m_child == 0) {
        ::setenv("TERM", "xterm", 1);
        ::unsetenv("NO_COLOR");
        for (const auto &setting : environment) {
            ::putenv(qstrdup(setting.toUtf8().constData()));
        }
        ::execv(argv.front(), argv.data());
        ::_exit(127);
    }
}

PseudoTerminal::~PseudoTerminal()
{
    ::close(m_fd);
    if (m_child > 0) {
        ::kill(m_child, SIGKILL);
        ::waitpid(m_child, nullptr, 0);
    }
}

bool PseudoTerminal::readUntil(const QByteArray &text)
{
    while (true) {
        const int found = m_shown.indexOf(text, m_searched);
        if (found >= 0) {
            m_searched = found + text.size();
            return true;
        }
        if (!readMore()) {
            return false;
        }
    }
}

void PseudoTerminal::type(const QByteArray &keys)
{
    if (::write(m_fd, keys.constData(), static_cast<std::size_t>(keys.size())) != keys.size()) {
        qFatal("The pseudo terminal takes no keys");
    }
}

void PseudoTerminal::resize(int rows, int columns)
{
    const winsize size = sizeOf(rows, columns);
    ::ioctl(m_fd, TIOCSWINSZ, &size);
}

bool PseudoTerminal::signal(int number) const
{
    return m_child > 0 && ::kill(m_child, number) == 0;
}

int PseudoTerminal::finish()
{
    while (readMore()) { }
    int status = 0;
    ::waitpid(m_child, &status, 0);
    m_child = -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

bool PseudoTerminal::readMore()
{
    // The read fails when the other side has been closed, that is, when the tool has ended.
    std::array<char, 4096> bytes;
    const auto count = ::read(m_fd, bytes.data(), bytes.size());
    if (count <= 0) {
        return false;
    }
    m_shown.append(bytes.data(), static_cast<int>(count));
    return true;
}
