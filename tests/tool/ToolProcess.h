#pragma once

#include <QByteArray>
#include <QProcess>
#include <QString>
#include <QStringList>

/// How a run of the tool ended and what it wrote.
struct ToolResult
{
    int exitCode;
    QString output;
    QString error;
};

/// Runs the built tool to its end, with an empty standard input.
ToolResult runTool(const QStringList &arguments, const QStringList &environment = {});

/// Runs the built tool as a user without rights, which root alone can. Without any output if that user
/// cannot reach it.
ToolResult runToolAsAnother(const QStringList &arguments);

/// Runs the built tool with a standard output that nobody reads. -1 if a signal ended it.
int exitCodeWithoutReader(const QStringList &arguments);

/// The built tool while it runs. It is killed with this object if it still does.
class ToolProcess
{
public:
    /// @p folder is where it works; that of the test without one.
    explicit ToolProcess(const QStringList &arguments, const QStringList &environment = {},
                         const QString &folder = {});
    ~ToolProcess();

    ToolProcess(const ToolProcess &) = delete;
    ToolProcess &operator=(const ToolProcess &) = delete;

    /// 0 if it has ended.
    qint64 pid() const { return m_process.processId(); }
    /// The next line on standard output; empty if the tool ended before.
    QString nextLine();
    void signal(int number);
    /// Waits for the end; what nextLine() has taken is not in the output.
    ToolResult finish();

private:
    QProcess m_process;
};
