#pragma once

#include "service/Service.h"

#include <QString>

#include <functional>

/// What a program does while it serves, in its own words.
struct Serving
{
    /// Reads the configuration again and goes on with it. Throws a Refusal where it cannot be, and leaves all as it was.
    std::function<void()> readAgain;
    /// What is served, in one line for a person.
    std::function<QString()> status;
};

/// Tells @p service that it is ready, from then on ends the event loop and reads the configuration again as it is
/// asked to, and logs what came of it. Both end with @p context.
void keepServing(Service &service, const QObject *context, const Serving &serving);
