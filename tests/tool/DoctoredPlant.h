#pragma once

#include "HeldRegion.h"
#include "ToolProcess.h"
#include "support/SegmentFile.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <csignal>

/// A description of one number whose region something is wrong with. Removes what is left of it.
class DoctoredPlant
{
public:
    DoctoredPlant()
        : m_segment(m_description.key() + QStringLiteral("SharedMemory"))
        , m_semaphores(m_description.key() + QStringLiteral("Semaphore"))
    {
        m_description.add(url, QStringLiteral("int32"), ToolDescription::Metadata::ErrorState, 4);
        file = m_description.write();
    }

    ToolDescription &description() { return m_description; }
    const SegmentFile &segment() const { return m_segment; }
    const SemaphoreSet &semaphores() const { return m_semaphores; }
    QString key() const { return m_description.key(); }

    /// Makes the region and kills its creator, whose process id comes back; 0 if that did not work.
    qint64 leaveRegion() const
    {
        ToolProcess hold({QStringLiteral("hold"), file});
        const bool isHeld = hold.nextLine().startsWith(QStringLiteral("holding"));
        const qint64 pid = hold.pid();
        hold.signal(SIGKILL);
        return isHeld && hold.finish().exitCode == -1 ? pid : 0;
    }

    const QString url = QStringLiteral("pump/speed");
    QString file;

private:
    ToolDescription m_description;
    SegmentFile m_segment;
    SemaphoreSet m_semaphores;
};

/// A creator, or a reader, that has come as far as that.
class RunningTool : public ToolProcess
{
public:
    explicit RunningTool(const QStringList &arguments)
        : ToolProcess(arguments)
        , m_isReady(!nextLine().isEmpty())
    {
    }
    static QStringList hold(const QString &file) { return {QStringLiteral("hold"), file}; }
    static QStringList watch(const QString &file)
    {
        return {QStringLiteral("watch"), QStringLiteral("--interval"), QStringLiteral("3600000"),
                file};
    }

    bool isReady() const { return m_isReady; }
    int end()
    {
        signal(SIGTERM);
        return finish().exitCode;
    }

private:
    bool m_isReady;
};

inline ToolResult doctor(const QStringList &arguments, const QStringList &environment = {})
{
    return runTool(QStringList(QStringLiteral("doctor")) + arguments, environment);
}

/// All findings; what the machine itself has is among them.
inline QJsonArray allFindings(const QStringList &files = {})
{
    return QJsonDocument::fromJson(
               doctor(QStringList(QStringLiteral("--json")) + files).output.toUtf8())
        .array();
}

/// What is found of the region, each as "level rule pid: text; cure", the pid left out if there is none.
inline QStringList findingsOf(const QString &key, const QStringList &files)
{
    QStringList found;
    const QJsonArray all = allFindings(files);
    for (const auto &entry : all) {
        const QJsonObject object = entry.toObject();
        const auto text = [&object](const char *name) {
            return object.value(QLatin1String(name)).toString();
        };
        if (text("key") != key) {
            continue;
        }
        const QJsonValue pid = object.value(QStringLiteral("pid"));
        found.append(QStringLiteral("%1 %2%3: %4; %5")
                         .arg(text("level"), text("rule"),
                              pid.isNull() ? QString()
                                           : QStringLiteral(" %1").arg(pid.toDouble(), 0, 'f', 0),
                              text("text"), text("cure")));
    }
    return found;
}

/// The same without what could not be looked at, which depends on who looks.
inline QStringList faultsOf(const QString &key, const QStringList &files)
{
    return findingsOf(key, files).filter(QRegularExpression(QStringLiteral("^(error|warning) ")));
}

/// What a person sees first.
inline QStringList firstLines(const QString &file)
{
    constexpr int count = 3;
    return doctor({file}).output.split(QLatin1Char('\n')).mid(0, count);
}
