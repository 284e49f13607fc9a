#pragma once

#include <gtest/gtest.h>

#include <windows.h>

#include <atomic>

/// Ends the program when one test takes far longer than any does, and prints where each thread is: a hang
/// that comes once in many runs explains itself. Takes no lock and no memory of the process for it, since a
/// hung thread may own either.
class HangReport : public testing::EmptyTestEventListener
{
public:
    explicit HangReport(ULONGLONG longestTest = 240'000); // milliseconds; four times what the longest takes

    /// Does so at once.
    [[noreturn]] static void endProgram();

    void OnTestStart(const testing::TestInfo& test) override;
    void OnTestEnd(const testing::TestInfo& /*ended*/) override { test = nullptr; }

private:
    static DWORD WINAPI watch(void* self);
    ULONGLONG m_longestTest;
    static std::atomic<const testing::TestInfo*> test; // the current one; null: between two
    std::atomic<ULONGLONG> m_begin{0};                 // milliseconds
};
