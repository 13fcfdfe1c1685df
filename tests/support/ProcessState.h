#pragma once

#include <fstream>
#include <string>

#include <sys/types.h>

/// What a process or a thread is about: the letter that stands in /proc/PID/stat, such as `S` for one that
/// sleeps until something comes. 0 if there is none of that number.
inline char processState(pid_t number)
{
    std::ifstream status("/proc/" + std::to_string(number) + "/stat");
    std::string text;
    std::getline(status, text);
    // It stands behind the name, which may hold anything.
    const std::size_t nameEnd = text.rfind(')');
    return nameEnd != std::string::npos && nameEnd + 2 < text.size() ? text[nameEnd + 2] : '\0';
}
