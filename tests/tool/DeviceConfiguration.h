#pragma once

#include "ProcessDataManagement/DescriptionDirectory.h"
#include "ToolProcess.h"

#include <QtTest>

/// A copy of the example device, and `tessel config` run on it.
class DeviceConfiguration
{
public:
    DeviceConfiguration() : m_directory(QStringLiteral("device"))
    {
        if (!m_directory.copy(QStringLiteral(EXAMPLE_DEVICE))) {
            qFatal("The example cannot be copied");
        }
    }

    const DescriptionDirectory &directory() const { return m_directory; }
    QString path(const QString &name = {}) const
    {
        return name.isEmpty() ? m_directory.path() : m_directory.filePath(name);
    }

    /// `tessel config ACTION DIR ARGUMENT...`
    ToolResult run(const QString &action, const QStringList &arguments) const
    {
        return runOn(action, path(), arguments);
    }
    static ToolResult runOn(const QString &action, const QString &path,
                            const QStringList &arguments)
    {
        return runTool(QStringList{QStringLiteral("config"), action, path} + arguments);
    }

    /// What `config get` prints, without its line end; the error line if it fails.
    QString valueAt(const QString &url) const
    {
        const ToolResult result = run(QStringLiteral("get"), {url});
        return result.exitCode == 0 ? result.output.chopped(1) : result.error;
    }

    /// The files that are not what they were.
    QStringList changedSince(const DescriptionDirectory::Snapshot &former) const
    {
        const DescriptionDirectory::Snapshot now = m_directory.snapshot();
        QStringList changed;
        for (auto file = now.cbegin(); file != now.cend(); ++file) {
            if (former.value(file.key()) != file.value()) {
                changed.append(file.key());
            }
        }
        for (auto file = former.cbegin(); file != former.cend(); ++file) {
            if (!now.contains(file.key())) {
                changed.append(file.key());
            }
        }
        return changed;
    }

private:
    DescriptionDirectory m_directory;
};

/// The one line of a refusal, and nothing else anywhere.
#define VERIFY_REFUSED(result, code, text)                                                         \
 do {                                                                                              \
  QCOMPARE((result).error, QStringLiteral("tessel: ") + (text) + QLatin1Char('\n'));               \
  QCOMPARE((result).output, QString());                                                            \
  QCOMPARE((result).exitCode, code);                                                               \
 } while (false)
