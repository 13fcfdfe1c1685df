#pragma once

/// Takes the library through all that an application does with its configuration and its process
/// values: reads the configuration at @p path, changes and stamps it, writes it back, and exchanges
/// values through a region of its own. True if everything was as expected; what was not is said on
/// the standard error.
extern "C" bool useTheLibrary(const char *path, int value);
