#include "c/Calls.h"
#include "support/FtpServers.h"
#include "support/ImportReplacement.h"

namespace {
sysmaint_ftp_account accountOf(std::uint32_t port, const wchar_t* password)
{
    return {sizeof(sysmaint_ftp_account), port, L"127.0.0.1", L"user", password, 60000, 0};
}

std::set<std::wstring> entries; // of the latest scan

std::int32_t find(void* rootLength, const sysmaint_found* found)
{
    std::uint64_t size = 0;
    std::int32_t isLink = 9;
    const bool isFile = sysmaint_item_size(found->item, &size) == 0;
    EXPECT_EQ(isFile, found->type == SYSMAINT_ITEM_FTP_FILE);
    EXPECT_EQ(sysmaint_item_is_link(found->item, &isLink), isFile ? 0 : 120);
    const wchar_t* const kind = isLink == 1 ? L"link " : L"file ";
    entries.insert((isFile ? kind + std::to_wstring(size) : L"folder") + L" " +
                   std::wstring(found->path).substr(*static_cast<std::size_t*>(rootLength)));
    return 0;
}

std::int32_t scanServer(const sysmaint_ftp_account& account)
{
    sysmaint_scan* scan = nullptr;
    std::size_t rootLength = (L"ftp://127.0.0.1:" + std::to_wstring(account.port)).size();
    EXPECT_EQ(sysmaint_scan_create(SYSMAINT_SCAN_FTP, &scan), 0);
    EXPECT_EQ(sysmaint_scan_add_ftp_folder(scan, &account, L"/"), 0);
    entries.clear();
    const std::int32_t code = sysmaint_scan_run(scan, nullptr, nullptr, nullptr, &find, &rootLength);
    EXPECT_EQ(sysmaint_scan_close(scan), 0);
    return code;
}
} // namespace

// A real server, walked and used through the C interface alone.
TEST(CFtp, WalksAServerAndTransfersFiles)
{
    FtpServers servers(L"real");
    const Folder folder;
    const std::uint32_t port = servers.ports["pyftpdlib"];
    EXPECT_EQ(scanServer(accountOf(port, L"secret")), 0);
    EXPECT_EQ(entries, servers.entries);
    EXPECT_EQ(scanServer(accountOf(port, L"wrong")), ERROR_LOGON_FAILURE);

    sysmaint_ftp* ftp = nullptr;
    sysmaint_item* item = nullptr;
    std::int32_t exists = 7;
    const std::wstring local = folder.file(L"up", 300000);
    const std::wstring copy = folder.at(L"down");
    const sysmaint_ftp_account real = accountOf(port, L"secret");
    expectCodes({
        {"create", [&] { return sysmaint_ftp_create(&real, &ftp); }, 0},
        {"connect", [&] { return sysmaint_ftp_connect(ftp, nullptr); }, 0},
        {"file", [&] { return sysmaint_item_ftp_file(ftp, L"folder/c.bin", &item); }, 0},
        {"missing", [&] { return sysmaint_item_download(item, copy.c_str(), 0, nullptr); }, 2},
        {"upload", [&] { return sysmaint_item_upload(item, local.c_str(), nullptr); }, 0},
        {"download", [&] { return sysmaint_item_download(item, copy.c_str(), 0, nullptr); }, 0},
        {"again", [&] { return sysmaint_item_download(item, copy.c_str(), 0, nullptr); }, 80},
        {"delete", [&] { return sysmaint_item_delete(item, nullptr); }, 0},
        {"exists", [&] { return sysmaint_item_exists(item, &exists); }, 0},
        {"close", [&] { return sysmaint_ftp_close(ftp); }, 0},
        {"gone", [&] { return sysmaint_item_exists(item, &exists); }, 2250},
        {"item", [&] { return sysmaint_item_close(item); }, 0},
    });
    EXPECT_EQ(exists, 0);
    EXPECT_TRUE(Folder::isThere(copy));

    FtpServers hostile(L"hostile");
    const sysmaint_ftp_account mute = accountOf(hostile.ports["mute"], L"secret");
    const Win32Handle semaphore(CreateSemaphoreW(nullptr, 0, 9, nullptr)); // instead of an event
    {
        const Replaced<"WaitForMultipleObjects", decltype(&WaitForMultipleObjects)> waits(
            [&](auto wait, DWORD count, const HANDLE* handles, BOOL all, DWORD timeout) {
                if (wait(count, handles, all, 0) == WAIT_TIMEOUT)
                    ReleaseSemaphore(semaphore.get(), 1, nullptr);
                return wait(count, handles, all, timeout);
            });
        EXPECT_EQ(sysmaint_ftp_create(&mute, &ftp), 0);
        EXPECT_EQ(sysmaint_ftp_connect(ftp, semaphore.get()), 6);
        EXPECT_EQ(sysmaint_ftp_close(ftp), 0);
    }
    EXPECT_EQ(WaitForSingleObject(semaphore.get(), 0), WAIT_OBJECT_0) << "the wait gave it back";
    hostile.mend();
    EXPECT_EQ(scanServer(accountOf(hostile.ports["unix"], L"secret")), ERROR_PATH_NOT_FOUND);
    EXPECT_EQ(entries.count(L"link 5 /link"), 1U);
}
