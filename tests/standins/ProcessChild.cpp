// A program that the tests start, find, wait for and end:
//   process_child sleep | exit CODE | write MEBIBYTES | echo TEXT... | orphan | tree CHILDREN LEVELS
// A tree has that many children below each process of all levels but the last. Sleeping processes end by
// themselves after two minutes.

#include <windows.h>

#include <cstdlib>
#include <string>
#include <vector>

namespace {
void startSelf(const std::wstring& arguments)
{
    wchar_t program[1024];
    GetModuleFileNameW(nullptr, program, 1024);
    std::wstring command = L"process_child " + arguments;
    STARTUPINFOW with{};
    with.cb = sizeof with;
    PROCESS_INFORMATION child{};
    if (!CreateProcessW(program, command.data(), nullptr, nullptr, TRUE, 0, nullptr, nullptr, &with, &child))
        std::exit(3);
    CloseHandle(child.hThread);
    CloseHandle(child.hProcess);
}

void write(const void* data, std::size_t size)
{
    DWORD written = 0;
    if (!WriteFile(GetStdHandle(STD_OUTPUT_HANDLE), data, static_cast<DWORD>(size), &written, nullptr) ||
        written != size)
        std::exit(4);
}
} // namespace

int wmain(int count, wchar_t** arguments)
{
    const std::wstring what = count > 1 ? arguments[1] : L"";
    const auto number = [&](int index) { return std::wcstol(arguments[index], nullptr, 10); };
    if (what == L"exit")
        return static_cast<int>(number(2));
    if (what == L"write") {
        const std::vector<char> mebibyte(1 << 20, 'x');
        for (long i = number(2); i > 0; --i)
            write(mebibyte.data(), mebibyte.size());
        return 7;
    }
    if (what == L"echo") { // each with its terminator
        for (int i = 2; i < count; ++i)
            write(arguments[i], (std::wcslen(arguments[i]) + 1) * sizeof(wchar_t));
        return 0;
    }
    if (what == L"orphan") { // its child lives on, and holds what it has inherited
        startSelf(L"sleep");
        write("done", 4);
        return 0;
    }
    if (what == L"tree" && number(3) > 1)
        for (long i = number(2); i > 0; --i)
            startSelf(L"tree " + std::to_wstring(number(2)) + L" " + std::to_wstring(number(3) - 1));
    Sleep(120000);
    return 0;
}
