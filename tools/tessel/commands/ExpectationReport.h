#pragma once

#include "commands/ExpectationWatch.h"

/// What kept an expectation from holding: a line for each value at fault; empty if it holds.
QString expectationTable(const Expectation &expectation, const ExpectationOutcome &outcome);
/// Everything that was looked at, as one JSON object.
QString expectationJson(const Expectation &expectation, const ExpectationOutcome &outcome);
