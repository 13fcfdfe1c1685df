#pragma once

#include "http/HttpMessage.h"

#include <functional>

/// Answers to requests that a server refuses by itself, each of them the last on its connection.
namespace RefusedRequest {

using Refuser = std::function<HttpResponse(const HttpProblem &)>;

/// Cause and cure as plain text.
HttpResponse plainAnswer(const HttpProblem &problem);
/// What @p refuser makes of @p problem.
HttpResponse answer(const Refuser &refuser, const HttpProblem &problem);
/// That there are too many connections.
HttpResponse crowdedAnswer(const Refuser &refuser);
/// That as it goes over a line without encryption, for whoever has not asked anything yet.
QByteArray crowdedText(const Refuser &refuser);

} // namespace RefusedRequest
