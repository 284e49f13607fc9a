#pragma once

#include <windows.h>

#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <string>
#include <tuple>
#include <type_traits>
#include <utility>
#include <vector>

#include "c/sysmaint.h"

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

/// Whether a parameter is a handle: of a type that nobody knows.
template <class Parameter>
concept IsHandle = std::is_pointer_v<Parameter> && !std::is_const_v<std::remove_pointer_t<Parameter>> &&
                   !std::is_pointer_v<std::remove_pointer_t<Parameter>> &&
                   !std::is_function_v<std::remove_pointer_t<Parameter>> && !requires
{
    sizeof(std::remove_pointer_t<Parameter>);
};

/// Takes each pointer away in turn: 6 for a handle, otherwise 87. Those that may be null are given as null.
template <class... Parameters>
void expectNulls(const char* name, std::int32_t (*function)(Parameters...),
                 std::type_identity_t<Parameters>... given)
{
    SCOPED_TRACE(name);
    const std::tuple<Parameters...> arguments{given...};
    const auto without = [&]<std::size_t At>(std::integral_constant<std::size_t, At>) {
        using Parameter = std::tuple_element_t<At, std::tuple<Parameters...>>;
        if constexpr (std::is_pointer_v<Parameter>) {
            auto changed = arguments;
            if (std::exchange(std::get<At>(changed), nullptr) != nullptr) {
                EXPECT_EQ(std::apply(function, changed), IsHandle<Parameter> ? 6 : 87) << At;
            }
        }
    };
    [&]<std::size_t... At>(std::index_sequence<At...>)
    {
        (without(std::integral_constant<std::size_t, At>()), ...);
    }
    (std::index_sequence_for<Parameters...>());
}

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
    Folder(const Folder&) = delete;
    Folder& operator=(const Folder&) = delete;
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
