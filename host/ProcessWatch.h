#pragma once

#include <string>

/// What is watched, and how.
struct ProcessWatch
{
    std::wstring names; // empty: all
    bool wantsEvents;
    bool asJson;
    unsigned long interval; // milliseconds
    unsigned long seconds;  // 0: until it is cancelled
};

/// Prints each process that starts and ends on results(). Returns an ExitCode; throws a code.
int watchProcesses(const ProcessWatch& wanted);
