#include <set>

#include "c/Calls.h"
#include "support/FtpServers.h"

// A real server, walked and used through the C interface alone.
TEST(CFtp, WalksAServerAndTransfersFiles)
{
    FtpServers servers(L"real");
    const Folder folder;
    const std::uint32_t port = servers.ports["pyftpdlib"];
    const auto account = [&](std::uint32_t to, const wchar_t* password) {
        return sysmaint_ftp_account{
            sizeof(sysmaint_ftp_account), to, L"127.0.0.1", L"user", password, 60000, 0};
    };
    struct Finds
    {
        std::size_t rootLength;
        std::set<std::wstring> entries;
    } finds{(L"ftp://127.0.0.1:" + std::to_wstring(port)).size(), {}};
    const auto scanOf = [&](const sysmaint_ftp_account& server) {
        sysmaint_scan* scan = nullptr;
        EXPECT_EQ(sysmaint_scan_create(SYSMAINT_SCAN_FTP, &scan), 0);
        EXPECT_EQ(sysmaint_scan_add_ftp_folder(scan, &server, L"/"), 0);
        finds.entries.clear();
        const auto find = [](void* context, const sysmaint_found* found) {
            std::uint64_t size = 0;
            auto& self = *static_cast<Finds*>(context);
            const bool isFile = sysmaint_item_size(found->item, &size) == 0;
            EXPECT_EQ(isFile, found->type == SYSMAINT_ITEM_FTP_FILE);
            self.entries.insert((isFile ? L"file " + std::to_wstring(size) : L"folder") + L" " +
                                std::wstring(found->path).substr(self.rootLength));
            return 0;
        };
        const std::int32_t code = sysmaint_scan_run(scan, nullptr, nullptr, nullptr, find, &finds);
        EXPECT_EQ(sysmaint_scan_close(scan), 0);
        return code;
    };
    EXPECT_EQ(scanOf(account(port, L"secret")), 0);
    EXPECT_EQ(finds.entries, servers.entries);
    EXPECT_EQ(scanOf(account(port, L"wrong")), ERROR_LOGON_FAILURE);
    EXPECT_EQ(scanOf(account(1, L"secret")), 10061);

    sysmaint_ftp* ftp = nullptr;
    sysmaint_item* item = nullptr;
    std::int32_t exists = 7;
    const std::wstring local = folder.file(L"up", 300000);
    const std::wstring copy = folder.at(L"down");
    const sysmaint_ftp_account real = account(port, L"secret");
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
}
