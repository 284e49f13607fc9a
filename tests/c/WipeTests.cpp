#include "c/Calls.h"

namespace {
constexpr std::size_t kChunk = 1048576;

class CWipe : public testing::Test
{
protected:
    CWipe() { EXPECT_EQ(sysmaint_wiper_create(&wiper), 0); }
    ~CWipe() override { sysmaint_wiper_close(wiper); }

    std::int32_t wipe(const std::wstring& path, sysmaint_validator* validator = nullptr)
    {
        return sysmaint_wiper_wipe(wiper, SYSMAINT_WIPE_FILE, path.c_str(), &options, validator, nullptr,
                                   &progress.call, &progress);
    }

    const Folder folder;
    sysmaint_wiper* wiper = nullptr;
    sysmaint_wipe_options options{sizeof options, SYSMAINT_WIPE_ZEROS, 1, 0, 2 * kChunk};
    std::vector<std::uint64_t> done; // at each call
    std::int32_t result = 0;
    std::function<void()> act = [] {};
    Callback<sysmaint_wipe_progress> progress{[this](const sysmaint_wipe_progress& told) {
        done.push_back(told.done);
        act();
        return result;
    }};
};
} // namespace

TEST_F(CWipe, WipesWhatTheValidatorAcceptsAndTellsItsCallback)
{
    sysmaint_validator* validator = nullptr;
    ASSERT_EQ(sysmaint_validator_create(nullptr, L"kept.*", &validator), 0);
    const std::wstring gone = folder.file(L"gone.bin", 2 * kChunk);
    const std::wstring kept = folder.file(L"kept.bin", 10);
    EXPECT_EQ(wipe(gone, validator), 0);
    EXPECT_EQ(wipe(kept, validator), 0);
    EXPECT_FALSE(Folder::isThere(gone));
    EXPECT_TRUE(Folder::isThere(kept));
    EXPECT_EQ(done, (std::vector<std::uint64_t>{kChunk, 2 * kChunk}));

    EXPECT_EQ(sysmaint_validator_close(validator), 0);
    EXPECT_EQ(wipe(kept, validator), ERROR_INVALID_HANDLE);
    EXPECT_TRUE(Folder::isThere(kept)); // and never wiped without its rules
}

// The caller's refusal ends the call as an event would: the file goes, and waits for no restart.
TEST_F(CWipe, ACallbackStopsTheCallWithItsResultAndMayCloseTheWiper)
{
    result = 4711;
    const std::wstring path = folder.file(L"stopped.bin", 2 * kChunk);
    act = [&] {
        EXPECT_EQ(wipe(path), ERROR_BUSY);
        sysmaint_wiper* const closed = wiper;
        EXPECT_EQ(sysmaint_wiper_close(wiper), 0);
        EXPECT_EQ(sysmaint_wiper_close(closed), ERROR_INVALID_HANDLE);
    };
    EXPECT_EQ(wipe(path), 4711);
    EXPECT_EQ(done.size(), 1U);
    EXPECT_FALSE(Folder::isThere(path));
    EXPECT_EQ(ForceDeleteIsScheduled(path.c_str()), 0);
}

TEST_F(CWipe, WipesEntriesFromTheBackAndCountsWhatIsLeft)
{
    CreateDirectoryW(folder.at(L"tree").c_str(), nullptr);
    const std::wstring tree = folder.at(L"tree");
    folder.file(L"tree\\one", 5);
    const auto entries = [&](const wchar_t* second) {
        return std::vector<sysmaint_wipe_entry>{{sizeof(sysmaint_wipe_entry), 1, tree.c_str(), nullptr},
                                                {sizeof(sysmaint_wipe_entry), 0, L"one", tree.c_str()},
                                                {sizeof(sysmaint_wipe_entry), 0, second, tree.c_str()}};
    };
    std::uint64_t left = 9;
    const auto wipeEntries = [&](const std::vector<sysmaint_wipe_entry>& list, std::uint64_t count) {
        return sysmaint_wiper_wipe_entries(wiper, folder.path(), list.data(), count, &options, nullptr,
                                           nullptr, nullptr, &left);
    };
    EXPECT_EQ(wipeEntries(entries(L"missing"), 3), ERROR_FILE_NOT_FOUND);
    EXPECT_EQ(left, 3U);
    for (auto change : {+[](sysmaint_wipe_entry& entry) { entry.size -= 1; },
                        +[](sysmaint_wipe_entry& entry) { entry.folder = nullptr; },
                        +[](sysmaint_wipe_entry& entry) { entry.path = nullptr; },
                        +[](sysmaint_wipe_entry& entry) { entry.is_folder = 2; }}) {
        auto wrong = entries(L"missing");
        change(wrong[1]); // of which the last one could be wiped
        EXPECT_EQ(wipeEntries(wrong, 3), ERROR_INVALID_PARAMETER);
    }
    EXPECT_EQ(left, 3U); // as the first call has left it
    EXPECT_TRUE(Folder::isThere(tree + L"\\one"));
    EXPECT_EQ(wipeEntries(entries(L"missing"), 2), 0);
    EXPECT_EQ(left, 0U);
    EXPECT_FALSE(Folder::isThere(tree));

    folder.file(L"one", 2 * kChunk);
    const sysmaint_wipe_entry one{sizeof one, 0, L"one", folder.path()};
    result = 4711;
    EXPECT_EQ(sysmaint_wiper_wipe_entries(wiper, folder.path(), &one, 1, &options, nullptr, &progress.call,
                                          &progress, &left),
              4711);
}
