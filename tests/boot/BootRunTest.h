#pragma once

#include "engine/BootRun.h"
#include "support/ImportReplacement.h"
#include "support/Test.h"

template <auto Member, class Function>
struct Hooked;
template <auto Member, class... Types>
struct Hooked<Member, native::Status(NTAPI*)(Types...)>
{
    using Function = native::Status(NTAPI*)(Types...);
    static native::Status NTAPI call(Types... all) { return hook(native::systemApi().*Member, all...); }
    static inline std::function<native::Status(Function, Types...)> hook;
};

/// The native calls of a run, each of which a test may take over.
struct TestApi : native::Api
{
    TestApi() : native::Api(native::systemApi()) {}
    TestApi(TestApi&&) = delete;

    /// `hook` gets the system's function and the arguments.
    template <auto Member>
    void on(auto hook)
    {
        using Call = Hooked<Member, std::remove_reference_t<decltype(this->*Member)>>;
        Call::hook = std::move(hook);
        this->*Member = Call::call;
    }
    /// Counts the calls that have an effect. `hook` gets the call's number, from 1, and its function; returns
    /// the answer, or kGoOn to make the call.
    static constexpr native::Status kGoOn = 0x40000000;
    void onEach(auto hook)
    {
        const auto watch = [&]<auto... Members>()
        {
            (on<Members>([this, hook](auto original, auto... arguments) mutable {
                 const native::Status answer = hook(++calls, reinterpret_cast<const void*>(original));
                 return answer == kGoOn ? original(arguments...) : answer;
             }),
             ...);
        };
        using native::Api;
        watch.template operator()<&Api::createFile, &Api::readFile, &Api::writeFile, &Api::flushFile,
                                  &Api::queryFile, &Api::setFile, &Api::queryVolume, &Api::queryAttributes,
                                  &Api::close, &Api::allocate, &Api::delay>();
    }
    int calls = 0;
};

/// A folder with its own Windows folder and some files, which are checked after each run.
struct BootRunTest : testing::Test
{
    using Files = std::map<std::wstring, std::string>;

    BootRunTest()
    {
        SetFileAttributesW((root / L"report").c_str(), FILE_ATTRIBUTE_NORMAL); // from a run that ended early
        std::filesystem::remove_all(root);
        for (const wchar_t* name : // "nt" is another installation
             {L"keep", L"report", L"folder/x", L"windows/system32/ntdll.dll", L"windows/win.ini",
              L"windows/setup.log", L"windows/temp/x.tmp", L"ntuser.dat", L"bootmgr",
              L"folder/nt/system32/config/system", L"folder/nt/win.ini", L"folder/nt/setup.log"})
            write(name, "content of " + utf8(name));
    }

    void write(const std::wstring& name, const std::string& bytes) const
    {
        std::filesystem::create_directories((root / name).parent_path());
        std::ofstream file(root / name, std::ios::binary);
        file << bytes;
        ASSERT_TRUE(file.flush()) << name;
    }
    [[nodiscard]] std::string read(const std::wstring& name) const
    {
        std::ifstream file(root / name, std::ios::binary);
        return {std::istreambuf_iterator<char>(file), {}};
    }
    [[nodiscard]] bool isThere(const std::wstring& name) const { return exists(root / name); }
    [[nodiscard]] std::wstring log() const { return textOf(read(L"windows/sysmaint-boot.log")); }
    /// All files except those that the program itself writes.
    [[nodiscard]] Files files() const
    {
        Files found;
        for (const auto& entry : std::filesystem::recursive_directory_iterator(root)) {
            const std::wstring name = relative(entry.path(), root).generic_wstring();
            if (entry.is_regular_file() && name != L"windows/" + kList &&
                !name.starts_with(L"windows/sysmaint-boot."))
                found[name] = read(name);
        }
        return found;
    }

    /// The line of one of the files, by its name here.
    [[nodiscard]] std::wstring line(const std::wstring& name, const wchar_t* numbers = L"1*\t*1") const
    {
        return lineOf(L"\\??\\" + root.wstring() + L"\\" + name, numbers);
    }
    static std::wstring lineOf(const std::wstring& path, const wchar_t* numbers = L"1*\t*1")
    {
        return L"*FileShred*\t*" + path + L"*\t*" + numbers + L"\r\n";
    }
    static std::string bytesOf(const std::wstring& text)
    {
        return {reinterpret_cast<const char*>(text.data()), text.size() * sizeof(wchar_t)};
    }
    static std::wstring textOf(const std::string& bytes)
    {
        return {reinterpret_cast<const wchar_t*>(bytes.data()), bytes.size() / sizeof(wchar_t)};
    }
    void setList(const std::wstring& text) const { write((windows / kList).wstring(), bytesOf(text)); }
    /// The list after its header.
    [[nodiscard]] std::wstring list() const
    {
        const std::wstring text = textOf(read((windows / kList).wstring()));
        return text.substr(0, 4) == kHeader ? text.substr(4) : text;
    }
    RunReport run(const native::Api& api = native::systemApi(), const RunEvents& events = {}) const
    {
        const std::wstring folder = L"\\??\\" + windows.wstring();
        return BootRun(api, Text(folder.data(), folder.size()), events).run();
    }

    static inline const std::wstring kHeader = std::wstring(L"\0\0\r\n", 4);
    static inline const std::wstring kList = L"ForceDelete.txt";
    std::filesystem::path root =
        (std::filesystem::temp_directory_path().root_path() / L"sysmaint-boot-tests").make_preferred();
    std::filesystem::path windows = root / L"windows";
};
