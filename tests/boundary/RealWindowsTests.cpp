// What Windows does and the platform of the tests does not: the system's answers are put in its mouth.

#include <windows.h>

#include <winioctl.h>

#include <cwchar>
#include <tuple>

#include "core/win32/utils/logger/api.h"
#include "support/Wipe.h"

namespace {
using Deletions = Replaced<"DeleteFileW", decltype(&DeleteFileW)>;
using Removals = Replaced<"RemoveDirectoryW", decltype(&RemoveDirectoryW)>;
using Settings = Replaced<"SetFileInformationByHandle", decltype(&SetFileInformationByHandle)>;

/// A file "file" and a folder "tree" in a folder of their own, and time that passes at once.
class RealWindows : public WipeTest
{
protected:
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
    long wipeFile(std::uint32_t method = kWipeZeros)
    {
        return wipe(kWipeFile, at(L"file"), method, 1, event.get());
    }
    [[nodiscard]] unsigned long deleteItem(bool folderItem) const
    {
        return codeOf([&] {
            if (folderItem)
                std::unique_ptr<IDirectory>(DllGetDirectory(at(L"tree").c_str(), 0))->deleteItem();
            else
                std::unique_ptr<IFile>(DllGetFile(at(L"file").c_str(), 0))->deleteItem();
        });
    }
    /// Makes the opens with these flags fail with `code` so long as `left` is not 0.
    void failOpens(DWORD flags, DWORD code)
    {
        files.setHook([this, flags, code](auto open, auto... all) {
            const auto given = std::tuple(all...);
            if (std::get<5>(given) != flags || left == 0)
                return open(all...);
            --left;
            SetLastError(code);
            return INVALID_HANDLE_VALUE;
        });
    }

    const Bytes secret = Bytes(1000, 0xE5);
    const TestEvent event;
    long left = 0;
    DWORD waited = 0;
    DWORD cancelAfter = INFINITE;
    Replaced<"Sleep", decltype(&Sleep)> sleeps{[this](auto, DWORD pause) {
        waited += pause;
        if (waited >= cancelAfter)
            event.set();
    }};
};
} // namespace

TEST_F(RealWindows, WhatIsHeldForAMomentIsTriedAgainForASecond)
{
    const auto held = [this](auto original, LPCWSTR path, DWORD code) -> BOOL {
        if (left == 0)
            return original(path);
        --left;
        SetLastError(code);
        return FALSE;
    };
    DWORD code = 0;
    Deletions deletions([&](auto original, LPCWSTR path) { return held(original, path, code); });
    Removals removals([&](auto original, LPCWSTR path) { return held(original, path, code); });
    FreeSpaceQueries space([](auto, LPCWSTR, auto*, auto*, auto* free) {
        free->QuadPart = 0;
        return TRUE;
    });
    const auto wipeSpace = [this] { return wipe(kWipeFreeSpace, at(L""), kWipeZeros, 1, event.get()); };
    const auto makeLogger = []() -> unsigned long {
        void* logger = CreateLogger(L"held");
        const DWORD failure = GetLastError();
        return CloseLogger(logger) != 0 ? 0 : failure;
    };
    const struct
    {
        const char* what;
        DWORD flags; // of the opens that fail; 0: another call does
        std::function<unsigned long()> run;
        bool canCancel = false;
        DWORD failure = 0;
    } rows[] = {{"file", kOpenToWipe, [&] { return wipeFile(); }, true},
                {"folder", 0, [&] { return wipeFolder(); }, true},
                {"filler", 0x00200002, wipeSpace, true},
                {"filler again", 0x00200080, wipeSpace},
                {"filler's name", 0, wipeSpace},
                {"file item", 0, [&] { return deleteItem(false); }},
                {"folder item", 0, [&] { return deleteItem(true); }},
                {"log", FILE_ATTRIBUTE_NORMAL, makeLogger, false, ERROR_CAN_NOT_COMPLETE}};
    for (const auto& row : rows)
        for (const DWORD each : {5, 32, 33, 145, 303, 31}) {
            if (each == ERROR_DIR_NOT_EMPTY && std::string_view(row.what).substr(0, 6) != "folder")
                continue;
            SCOPED_TRACE(testing::Message() << row.what << " with " << each);
            const auto run = [&](long failures, DWORD cancelledAt = INFINITE) {
                prepare();
                cancelAfter = cancelledAt;
                code = row.flags == 0 ? each : 0;
                failOpens(row.flags, each);
                left = failures;
                const unsigned long result = row.run();
                left = 0;
                ResetEvent(event.get());
                takeBootList();
                return result;
            };
            const DWORD failure = row.failure != 0 ? row.failure : each;
            const bool waits = each != ERROR_GEN_FAILURE;
            EXPECT_EQ(run(4), waits ? 0 : failure);
            EXPECT_EQ(waited != 0, waits);
            EXPECT_EQ(run(1000), failure);
            EXPECT_TRUE(waits ? waited > 900 && waited < 1200 : waited == 0) << waited;
            if (row.canCancel && waits) {
                EXPECT_EQ(run(1000, 20), ERROR_CANCELLED);
                EXPECT_LT(waited, 50U);
            }
        }

    // Nobody empties a folder for us that holds something: it is not waited for.
    prepare();
    writeBytes(at(L"tree\\there"), secret);
    EXPECT_EQ(deleteItem(true), ERROR_DIR_NOT_EMPTY);
    EXPECT_EQ(waited, 0U);
}

TEST_F(RealWindows, ANewTryLooksAtWhatItTriesAgain)
{
    // While it is waited for, somebody puts another file there.
    files.setHook([this](auto open, auto... all) {
        if (std::get<5>(std::tuple(all...)) != kOpenToWipe || waited != 0)
            return open(all...);
        MoveFileW(at(L"file").c_str(), at(L"aside").c_str());
        writeBytes(at(L"file"), {1, 2, 3});
        SetLastError(ERROR_SHARING_VIOLATION);
        return INVALID_HANDLE_VALUE;
    });
    EXPECT_EQ(wipeFile(), ERROR_FILE_INVALID);
    EXPECT_EQ(readBytes(at(L"file")), (Bytes{1, 2, 3}));
    EXPECT_EQ(readBytes(at(L"aside")), secret);
    EXPECT_TRUE(takeBootList().empty());
}

TEST_F(RealWindows, NothingIsCalledGoneWhoseNameIsStillThere)
{
    // Open elsewhere, in a way that keeps nobody from opening or deleting it: the name stays until that ends.
    const auto hold = [this](const wchar_t* name) {
        return Win32Handle(::CreateFileW(at(name).c_str(), FILE_READ_ATTRIBUTES, 7, nullptr, OPEN_EXISTING,
                                         FILE_FLAG_BACKUP_SEMANTICS, nullptr));
    };
    const std::tuple<const char*, const wchar_t*, std::function<unsigned long()>> rows[] = {
        {"wiped file", L"file", [&] { return wipeFile(); }},
        {"wiped folder", L"tree", [&] { return wipeFolder(); }},
        {"file item", L"file", [&] { return deleteItem(false); }},
        {"folder item", L"tree", [&] { return deleteItem(true); }}};
    // From the deletion on nobody can open it.
    bool isMarked = false, isPosix = false;
    const auto mark = [&](auto original, auto... all) {
        isMarked = true;
        return original(all...);
    };
    Deletions deletions(mark);
    Removals removals(mark);
    Settings settings([&](auto set, HANDLE file, auto what, LPVOID data, DWORD size) -> BOOL {
        if (static_cast<int>(what) != 21)
            return set(file, what, data, size);
        EXPECT_EQ(*static_cast<DWORD*>(data), 3U);
        isMarked = true;
        return isPosix;
    });
    files.setHook([&](auto open, auto... all) {
        SetLastError(ERROR_ACCESS_DENIED);
        return isMarked ? INVALID_HANDLE_VALUE : open(all...);
    });
    for (const auto& [what, name, run] : rows)
        for (const bool forAMoment : {false, true}) {
            SCOPED_TRACE(testing::Message() << what << forAMoment);
            prepare();
            isMarked = false;
            Win32Handle holder = hold(name);
            sleeps.setHook([&](auto, DWORD pause) {
                waited += pause;
                if (forAMoment)
                    holder.reset();
            });
            EXPECT_EQ(run(), forAMoment ? 0UL : 303UL);
            EXPECT_EQ(waited > 900, !forAMoment);
            holder.reset();
            isMarked = false;
            EXPECT_FALSE(isThere(at(name)));
            EXPECT_TRUE(takeBootList().empty()) << "it goes by itself, and the next of that name is another";
        }

    // A system that deletes the POSIX way says so, and is not asked again; one that has let the deletion be
    // taken back is found out; another file of that name is none of our business.
    Attributes looks;
    files.setHook(nullptr);
    isPosix = true;
    prepare();
    looks.reset();
    EXPECT_EQ(wipeFile(), 0);
    EXPECT_EQ(looks.calls(), 1); // before
    isPosix = false;
    Replaced<"CloseHandle", decltype(&CloseHandle)> closes;
    for (const bool isAnother : {false, true}) {
        prepare();
        writeBytes(at(L"another"), {1});
        files.setHook([&](auto open, auto... all) {
            if (std::get<5>(std::tuple(all...)) != kOpenToWipe)
                return open(all...);
            const HANDLE file = ::CreateFileW(at(L"file").c_str(), GENERIC_ALL, 0, nullptr, OPEN_EXISTING,
                                              isAnother ? kOpenToWipe : FILE_ATTRIBUTE_NORMAL, nullptr);
            closes.setHook([&, file](auto close, HANDLE closed) {
                const BOOL isClosed = close(closed);
                if (closed == file && isAnother)
                    MoveFileW(at(L"another").c_str(), at(L"file").c_str());
                return isClosed;
            });
            return file;
        });
        EXPECT_EQ(wipeFile(), isAnother ? 0 : ERROR_ACCESS_DENIED);
        EXPECT_EQ(takeBootList().empty(), isAnother);
        EXPECT_EQ(readBytes(at(L"file")).size(), isAnother ? 1U : 0U);
        closes.setHook(nullptr);
    }
}

TEST_F(RealWindows, FilesOfWhichOneIsNotTheMasterAreOpenedWithLess)
{
    prepare();
    std::vector<DWORD> asked;
    DWORD refused = GENERIC_ALL;
    files.setHook([&](auto open, auto... all) {
        const DWORD access = std::get<1>(std::tuple(all...)), flags = std::get<5>(std::tuple(all...));
        if ((flags & 0x04200000) == 0 || access == FILE_READ_ATTRIBUTES)
            return open(all...);
        asked.push_back(access);
        SetLastError(ERROR_ACCESS_DENIED);
        return (access & refused) != 0 ? INVALID_HANDLE_VALUE : open(all...);
    });
    FreeSpaceQueries space([](auto, LPCWSTR, auto*, auto*, auto* free) {
        free->QuadPart = 0;
        return TRUE;
    });
    constexpr DWORD kLess = GENERIC_READ | GENERIC_WRITE | DELETE;
    EXPECT_EQ(wipeFile(), 0);
    EXPECT_FALSE(isThere(at(L"file")));
    EXPECT_EQ(asked, (std::vector<DWORD>{GENERIC_ALL, kLess}));
    asked.clear();
    EXPECT_EQ(wipe(kWipeFreeSpace, at(L"")), 0);
    EXPECT_EQ(asked, (std::vector<DWORD>{GENERIC_ALL, kLess, GENERIC_ALL, kLess}));
    EXPECT_TRUE(takeBootList().empty());
    prepare();
    refused = GENERIC_ALL | GENERIC_WRITE;
    EXPECT_EQ(wipeFile(), ERROR_ACCESS_DENIED);
    EXPECT_EQ(readBytes(at(L"file")), secret);
}
