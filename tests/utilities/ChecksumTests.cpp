// The expected values come from md5sum, sha1sum, sha256sum and crc32 of Debian: tests/support/checksums made
// the files and the list.

#include "core/win32/utils/objectmanager/include/Win32Handle.h"
#include "support/Utilities.h"

namespace {
const auto hex = asText(StringFormatHexA);

struct Progress
{
    unsigned long long calls = 0, done = 0, size = 0;
    HANDLE cancel = nullptr;
    static void note(unsigned long long done, unsigned long long size, void* context)
    {
        auto* self = static_cast<Progress*>(context);
        EXPECT_GT(done, self->done);
        *self = {self->calls + 1, done, size, self->cancel};
        if (self->cancel != nullptr)
            SetEvent(self->cancel);
    }
};

const std::wstring kFolder = testPath(L"checksums\\");
} // namespace

TEST(Checksums, AgreeWithOtherPrograms)
{
    std::ifstream list(utf8(kFolder + L"list"));
    std::string line;
    int files = 0;
    while (std::getline(list, line)) {
        std::istringstream words(line);
        std::string name, md5, sha1, sha256;
        unsigned long value = 0, crc = 0;
        words >> name >> std::hex >> crc >> md5 >> sha1 >> sha256;
        const std::wstring path = kFolder + std::wstring(name.begin(), name.end());
        std::ifstream file(utf8(path), std::ios::binary);
        const std::string bytes((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
        unsigned char digest[33] = {};
        digest[32] = 0x5a;
        const auto both = [&](auto ofMemory, auto ofFile, size_t size, const std::string& expected) {
            EXPECT_EQ(ofMemory(bytes.data(), bytes.size(), digest), 0);
            EXPECT_EQ(hex(digest, size), expected) << name;
            std::fill_n(digest, 32, static_cast<unsigned char>(0x5a));
            Progress progress;
            EXPECT_EQ(ofFile(path.c_str(), nullptr, Progress::note, &progress, digest), 0);
            EXPECT_EQ(hex(digest, size), expected) << name;
            EXPECT_EQ(digest[size], 0x5a);
            EXPECT_TRUE(bytes.empty() ? progress.calls == 0
                                      : progress.done == bytes.size() && progress.size == bytes.size());
        };
        both(ChecksumMd5, ChecksumFileMd5, 16, md5);
        both(ChecksumSha1, ChecksumFileSha1, 20, sha1);
        both(ChecksumSha256, ChecksumFileSha256, 32, sha256);
        EXPECT_EQ(ChecksumFileCrc32(path.c_str(), nullptr, nullptr, nullptr, &value), 0);
        EXPECT_EQ(value, crc) << name;
        for (size_t cut : {size_t(0), bytes.size() / 3, bytes.size()}) { // in two pieces, wherever it is cut
            unsigned long first = 0;
            EXPECT_EQ(ChecksumCrc32(bytes.data(), cut, 0, &first), 0);
            EXPECT_EQ(ChecksumCrc32(bytes.data() + cut, bytes.size() - cut, first, &value), 0);
            EXPECT_EQ(value, crc) << name << " cut at " << cut;
        }
        ++files;
    }
    EXPECT_GE(files, 130);
}

TEST(Checksums, ReadAGrowingFileToItsEnd)
{
    std::string path = utf8(testPath(L"growing"));
    std::ofstream(path, std::ios::binary) << "a";
    const auto grow = [](unsigned long long done, unsigned long long size, void* file) {
        EXPECT_EQ(size, 1U);
        if (done < 3)
            std::ofstream(*static_cast<std::string*>(file), std::ios::binary | std::ios::app) << "abc"[done];
    };
    unsigned char digest[16] = {};
    EXPECT_EQ(ChecksumFileMd5(testPath(L"growing").c_str(), nullptr, grow, &path, digest), 0);
    EXPECT_EQ(hex(digest, 16), "900150983cd24fb0d6963f7d28e17f72"); // of "abc"
}

TEST(Checksums, CancelAndFail)
{
    const std::wstring large = kFolder + L"large";
    unsigned char digest[32] = {};
    Progress progress;
    const Win32Handle cancel(progress.cancel = CreateEventW(nullptr, TRUE, FALSE, nullptr));
    EXPECT_EQ(ChecksumFileSha256(large.c_str(), progress.cancel, Progress::note, &progress, digest), 1223);
    EXPECT_EQ(progress.calls, 1U);
    EXPECT_EQ(hex(digest, 32), std::string(64, '0'));
    const Win32Handle mutex(CreateMutexW(nullptr, FALSE, nullptr));
    const Win32Handle semaphore(CreateSemaphoreW(nullptr, 1, 1, nullptr));
    const Win32Handle timer(CreateWaitableTimerW(nullptr, TRUE, nullptr));
    for (const HANDLE other :
         {kNoHandle, mutex.get(), semaphore.get(), timer.get(), INVALID_HANDLE_VALUE, GetCurrentThread()})
        EXPECT_EQ(ChecksumFileMd5(large.c_str(), other, nullptr, nullptr, digest), 6);
    EXPECT_EQ(WaitForSingleObject(semaphore.get(), 0), WAIT_OBJECT_0); // nobody has taken it
    EXPECT_EQ(ChecksumSha1("", static_cast<size_t>(-1), digest), 87);
    EXPECT_EQ(ChecksumFileMd5((kFolder + L"missing").c_str(), nullptr, nullptr, nullptr, digest), 2);
    EXPECT_EQ(ChecksumFileMd5(kFolder.c_str(), nullptr, nullptr, nullptr, digest), 5);
}
