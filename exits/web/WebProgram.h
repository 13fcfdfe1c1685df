#pragma once

#include "service/Service.h"
#include "web/WebApi.h"

#include <QObject>

#include <memory>

/// `tessel-web` from its settings on: follows a region and serves it to browsers and programs.
class WebProgram : public QObject
{
    Q_OBJECT

public:
    /// @p words are those of the command line, which are read again with the configuration file.
    explicit WebProgram(const QStringList &words) : m_words(words) { }

    /// Listens, and reports to the service manager through @p service, which has to live longer. Throws
    /// a Refusal if something makes no sense, or the address cannot be had.
    void serve(Service &service);

private:
    /// One state of the configuration, made as a whole or not at all.
    struct Setup
    {
        WebSettings settings;
        std::shared_ptr<LiveFeed> feed;
        std::shared_ptr<HttpServer> server;
    };

    Setup prepare() const;
    std::shared_ptr<HttpServer> makeServer(const WebSettings &settings);
    void listen(Setup &setup);
    void readAgain();
    void adopt(Setup setup);
    QString statusText() const;

    QStringList m_words;
    WebApi m_api;
    Setup m_setup;
};
