#pragma once

#include "HeldRegion.h"
#include "ToolProcess.h"
#include "support/LogCapture.h"

#include <QtTest>

#include <limits>
#include <memory>

/// Tests of `tessel compare` on a region of every type.
class ComparedRegion : public QObject
{
protected:
    void prepare()
    {
        m_log = std::make_unique<LogCapture>();
        m_description = std::make_unique<ToolDescription>();
        m_description->add(QStringLiteral("n/level"), QStringLiteral("double"),
                           ToolDescription::Metadata::ErrorState, 8,
                           {{QStringLiteral("unit"), QStringLiteral("m")}});
        m_description->add(QStringLiteral("n/flow"), QStringLiteral("float"),
                           ToolDescription::Metadata::ErrorState, 4);
        m_description->add(QStringLiteral("count"), QStringLiteral("uint64"),
                           ToolDescription::Metadata::ErrorState, 8);
        m_description->add(QStringLiteral("tag"), QStringLiteral("string"),
                           ToolDescription::Metadata::ErrorState, 80);
        m_description->add(QStringLiteral("on"), QStringLiteral("boolean"),
                           ToolDescription::Metadata::ErrorState, 1);
        start();
        QVERIFY(m_region->write(QStringLiteral("n/level"), validValue(0.1)));
        QVERIFY(m_region->write(QStringLiteral("n/flow"), validValue(0.1F)));
        QVERIFY(m_region->write(QStringLiteral("count"),
                                validValue(std::numeric_limits<quint64>::max())));
        QVERIFY(m_region->write(QStringLiteral("tag"),
                                validValue(QStringLiteral("1234567890123456789"))));
        QVERIFY(m_region->publish(
            QStringLiteral("on"),
            ProcessValue(ProcessDataDefinitions::PROCESS_VALUE_ERROR_TYPE_TIMEOUT)));
    }
    void clear()
    {
        m_region.reset();
        m_description.reset();
        m_log.reset();
    }

    QString kept() const { return m_description->path(QStringLiteral("s.json")); }
    ToolResult take(const QStringList &urls = {})
    {
        return runTool(QStringList{QStringLiteral("snapshot"), QStringLiteral("-o"), kept(), m_file}
                       + urls);
    }
    ToolResult compare(const QStringList &options = {})
    {
        return runTool(QStringList(QStringLiteral("compare")) + options
                       + QStringList{m_file, kept()});
    }
    void start()
    {
        m_region.reset();
        m_file = m_description->write();
        m_region = std::make_unique<HeldRegion>(m_file);
        QVERIFY(m_region->isValid());
    }

    std::unique_ptr<LogCapture> m_log;
    std::unique_ptr<ToolDescription> m_description;
    QString m_file;
    std::unique_ptr<HeldRegion> m_region;
};
