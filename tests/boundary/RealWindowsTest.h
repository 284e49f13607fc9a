#pragma once

// What Windows does and the tests' platform does not: the system's answers are simulated.

#include "support/Wipe.h"

/// A file "file" and a folder "tree" in a folder of their own, and time that passes at once.
struct RealWindows : WipeTest
{
    RealWindows() { prepare(); }

    void prepare()
    {
        writeBytes(at(L"file"), secret);
        CreateDirectoryW(at(L"tree").c_str(), nullptr);
        wiper->setNeedsReboot(0);
        waited = 0;
    }
    long wipeFolder()
    {
        stack = {{HeapStringW(at(L"tree").c_str()), L"", true, false}};
        return wipe(kWipeDirectoryStack, at(L"tree"), kWipeZeros, 1, event.get());
    }
    long wipeFile(DWORD method = kWipeZeros) { return wipe(kWipeFile, at(L"file"), method, 1, event.get()); }
    [[nodiscard]] unsigned long deleteItem(bool folderItem) const
    {
        return codeOf(
            [&] { folderItem ? folderAt(at(L"tree"))->deleteItem() : fileAt(at(L"file"))->deleteItem(); });
    }
    /// Makes the opens with these flags fail with `code` so long as `left` is not 0.
    void failOpens(DWORD flags, DWORD code)
    {
        files.setHook(failing(INVALID_HANDLE_VALUE, code, [this, flags](auto... all) {
            return std::get<5>(std::tuple(all...)) == flags && left != 0 && left-- != 0;
        }));
    }

    /// `run`, whose calls fail with `each`, waits for about a second and then returns `failure`; a cancel
    /// ends it.
    void expectPatience(const std::function<unsigned long()>& run, DWORD flags, DWORD each, DWORD failure,
                        bool canCancel)
    {
        const auto runFailing = [&](long failures, DWORD cancelledAt = INFINITE) {
            prepare();
            cancelAfter = cancelledAt;
            failOpens(flags, each);
            left = failures;
            const unsigned long result = run();
            left = 0;
            ResetEvent(event.get());
            EXPECT_TRUE(takeBootList().empty() || each > 3) << "whoever takes a missing file's name";
            return result;
        };
        const bool waits = each > 3 && each != ERROR_GEN_FAILURE;
        EXPECT_EQ(runFailing(4), waits ? 0 : failure);
        EXPECT_EQ(waited != 0, waits);
        EXPECT_EQ(runFailing(1000), failure);
        EXPECT_TRUE(waits ? waited > 900 && waited < 1200 : waited == 0) << waited;
        if (canCancel && waits) {
            EXPECT_EQ(runFailing(1000, 20), ERROR_CANCELLED);
            EXPECT_LT(waited, 50U);
        }
    }

    const Bytes secret = Bytes(1000, 0xE5);
    const TestEvent event;
    long left = 0;
    DWORD waited = 0, cancelAfter = INFINITE;
    Replaced<"Sleep", decltype(&Sleep)> sleeps{[this](auto, DWORD pause) {
        waited += pause;
        if (waited >= cancelAfter)
            event.set();
    }};
};
