#pragma once

#include "c/sysmaint.h"
#include "support/Test.h"

/// One call of the C interface and the code that it must return.
struct Call
{
    const char* name;
    std::function<std::int32_t()> call;
    std::int32_t code;
};

/// Makes the calls in order. Each failure must be the thread's last one, by its code and function.
inline void expectCodes(const std::vector<Call>& calls)
{
    for (const Call& each : calls) {
        SCOPED_TRACE(each.name);
        ASSERT_EQ(each.call(), each.code);
        if (each.code == ERROR_SUCCESS)
            continue;
        sysmaint_failure failure{sizeof failure, 0, nullptr, nullptr};
        ASSERT_EQ(sysmaint_last_failure(&failure), 0);
        EXPECT_EQ(failure.code, each.code);
        EXPECT_EQ(std::string(failure.function).rfind("sysmaint_", 0), 0U);
        EXPECT_NE(failure.text, nullptr);
    }
}

/// A callback that runs a function of the test's.
template <class Told>
struct Callback
{
    std::function<std::int32_t(const Told&)> act;
    static std::int32_t call(void* context, const Told* told)
    {
        EXPECT_EQ(told->size, sizeof *told);
        return static_cast<Callback*>(context)->act(*told);
    }
};

/// A folder of its own with files, removed at the end.
class Folder
{
public:
    Folder()
    {
        wchar_t temp[MAX_PATH];
        GetTempPathW(MAX_PATH, temp);
        m_path = std::wstring(temp) + L"sysmaint-c-" + std::to_wstring(GetCurrentProcessId());
        CreateDirectoryW(m_path.c_str(), nullptr);
    }
    Folder(Folder&&) = delete;
    ~Folder() { FolderDeleteTree(m_path.c_str(), nullptr); }

    [[nodiscard]] std::wstring at(const wchar_t* name) const { return m_path + L'\\' + name; }
    [[nodiscard]] const wchar_t* path() const { return m_path.c_str(); }
    /// Makes a file of that many bytes and returns its path.
    std::wstring file(const wchar_t* name, std::size_t size) const // NOLINT(modernize-use-nodiscard)
    {
        const std::string bytes(size, 'x');
        std::wstring path = at(name);
        EXPECT_EQ(FileWriteAtomically(path.c_str(), bytes.data(), size), 0);
        return path;
    }
    [[nodiscard]] static bool isThere(const std::wstring& path)
    {
        return GetFileAttributesW(path.c_str()) != INVALID_FILE_ATTRIBUTES;
    }

private:
    std::wstring m_path;
};

/// A handle that was never given out.
template <class Handle>
Handle* strange()
{
    return reinterpret_cast<Handle*>(std::uintptr_t{0x7FF123456789});
}
