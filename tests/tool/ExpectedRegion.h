#pragma once

#include "HeldRegion.h"
#include "ToolProcess.h"
#include "support/LogCapture.h"

#include <QtTest>

#include <memory>

/// Tests of `tessel expect` on a region of several types, of which one value is not valid.
class ExpectedRegion : public QObject
{
protected:
    void prepare()
    {
        m_log = std::make_unique<LogCapture>();
        m_description = std::make_unique<ToolDescription>();
        m_description->add(QStringLiteral("pump/speed"), QStringLiteral("double"),
                           ToolDescription::Metadata::ErrorState, 8,
                           {{QStringLiteral("unit"), QStringLiteral("1/s")}});
        m_description->add(QStringLiteral("pump/flow"), QStringLiteral("float"),
                           ToolDescription::Metadata::ErrorState, 4);
        m_description->add(QStringLiteral("pump/on"), QStringLiteral("boolean"),
                           ToolDescription::Metadata::ErrorState, 1);
        m_description->add(QStringLiteral("count"), QStringLiteral("uint64"),
                           ToolDescription::Metadata::ErrorState, 8);
        m_description->add(QStringLiteral("tag"), QStringLiteral("string"),
                           ToolDescription::Metadata::ErrorState, 16);
        m_description->add(QStringLiteral("broken"), QStringLiteral("int32"),
                           ToolDescription::Metadata::ErrorState, 4);
        m_description->add(QStringLiteral("odd (name)"), QStringLiteral("int32"),
                           ToolDescription::Metadata::ErrorState, 4);
        m_file = m_description->write();
        m_region = std::make_unique<HeldRegion>(m_file);
        QVERIFY(m_region->isValid());
        QVERIFY(m_region->write(QStringLiteral("pump/speed"), validValue(20.5)));
        QVERIFY(m_region->write(QStringLiteral("pump/flow"), validValue(0.1F)));
        QVERIFY(m_region->write(QStringLiteral("pump/on"), validValue(true)));
        QVERIFY(m_region->write(QStringLiteral("count"), validValue(quint64(9007199254740993))));
        QVERIFY(m_region->write(QStringLiteral("tag"), validValue(QStringLiteral("TI 1"))));
        QVERIFY(m_region->write(QStringLiteral("odd (name)"), validValue(-5)));
        QVERIFY(m_region->publish(
            QStringLiteral("broken"),
            ProcessValue(ProcessDataDefinitions::PROCESS_VALUE_ERROR_TYPE_SENSOR_BREAKAGE)));
    }
    void clear()
    {
        m_region.reset();
        m_description.reset();
        m_log.reset();
    }

    ToolResult expect(const QString &expression, const QStringList &options = {})
    {
        return runTool(QStringList(QStringLiteral("expect")) + options
                       + QStringList{m_file, expression});
    }

    std::unique_ptr<LogCapture> m_log;
    std::unique_ptr<ToolDescription> m_description;
    QString m_file;
    std::unique_ptr<HeldRegion> m_region;
};
