#pragma once

#include "web/LiveFeed.h"
#include "web/PageFiles.h"
#include "web/RequestGate.h"
#include "web/WebSettings.h"

#include <memory>

/// What is answered to whom.
class WebApi
{
public:
    /// Both have to be set before the first question.
    void use(const WebSettings &settings, const std::shared_ptr<LiveFeed> &feed);

    HttpResponse answer(const HttpRequest &request);
    /// To what is refused before answer() hears of it.
    static HttpResponse refuse(const HttpProblem &problem);

private:
    using Answer = HttpResponse (WebApi::*)(const HttpRequest &);

    HttpResponse route(const HttpRequest &request);
    HttpResponse answerFile(const HttpRequest &request, const QByteArray &name) const;
    HttpResponse answerDescription(const HttpRequest &request);
    HttpResponse answerValues(const HttpRequest &request);
    HttpResponse answerPost(const HttpRequest &request);
    HttpResponse answerEvents(const HttpRequest &request);
    HttpResponse answerConfiguration(const HttpRequest &request);

    WebSettings m_settings;
    RequestGate m_gate;
    std::shared_ptr<LiveFeed> m_feed;
    PageFiles m_page;
};
