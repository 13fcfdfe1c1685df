#pragma once

/// To be called before anything is opened: fills those of standard input, output and error that this process was
/// started without, so that no file or region gets their numbers and has texts written into it. Reading and writing
/// there fail as if they were closed.
void fillStandardDescriptors();
