#pragma once

#include "http/HttpServer.h"
#include "metrics/MetricsText.h"
#include "region/RegionFollower.h"
#include "service/Service.h"
#include "service/Settings.h"

#include <QObject>

#include <memory>

/// What `tessel-metrics` takes.
ProgramSyntax metricsSyntax();

/// `tessel-metrics` from its settings on: follows a region and answers whoever asks for its metrics.
class MetricsProgram : public QObject
{
    Q_OBJECT

public:
    /// @p words are those of the command line, which are read again with the configuration file. Throws a
    /// Refusal.
    explicit MetricsProgram(const QStringList &words);

    /// Prints the metrics of one set in the text format of Prometheus. Throws a Refusal.
    void printOnce();
    /// Listens, and reports to the service manager through @p service, which has to live longer. Throws
    /// a Refusal if the address cannot be had.
    void serve(Service &service);

private:
    /// One state of the configuration, made as a whole or not at all.
    struct Setup
    {
        MetricsChoice choice;
        QStringList mirrors; ///< status files
        std::shared_ptr<RegionFollower> region;
        std::shared_ptr<HttpServer> server;
    };

    Setup prepare(const Settings &settings) const;
    void listen(const Settings &settings, Setup &setup);
    void choose();
    void readAgain();
    void adopt(Setup setup);
    QString statusText() const;
    HttpResponse answer(const HttpRequest &request);

    QStringList m_words;
    Settings m_settings;
    Setup m_setup;
    QVector<int> m_leaves;
};
