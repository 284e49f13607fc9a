// sysmaint-boot.exe: overwrites and deletes the files that wait for the restart. The system starts it before
// any other program, when nobody has them open yet. At that time there is only ntdll.dll, and no runtime
// library.

#include "BootExecuteEntry.h"
#include "engine/BootNames.h"
#include "engine/BootRun.h"

extern "C" {
native::Status NTAPI NtDisplayString(const native::UnicodeString* text);
native::Status NTAPI NtQueryPerformanceCounter(LARGE_INTEGER* count, LARGE_INTEGER* frequency);
native::Status NTAPI NtTerminateProcess(HANDLE process, native::Status status);
void NTAPI NtProcessStartup(void* environment);
}

namespace {
constexpr LONGLONG kTimeLimit = 600; // seconds, for the whole run

/// What the start screen shows, and for how long.
struct Screen
{
    LARGE_INTEGER begin{};
    LARGE_INTEGER frequency{};
    std::uint32_t line = 0;
    unsigned percent = 0;

    Screen() { NtQueryPerformanceCounter(&begin, &frequency); }

    static void show(Text text)
    {
        const auto bytes = static_cast<USHORT>(text.length * sizeof(wchar_t));
        const native::UnicodeString string = {bytes, bytes, text.data};
        NtDisplayString(&string);
    }
    static bool isOver(void* context)
    {
        const auto& screen = *static_cast<const Screen*>(context);
        LARGE_INTEGER now{};
        LARGE_INTEGER frequency{};
        NtQueryPerformanceCounter(&now, &frequency);
        return now.QuadPart - screen.begin.QuadPart >= kTimeLimit * screen.frequency.QuadPart;
    }
    static void onProgress(void* context, std::uint32_t line, std::uint32_t lines, unsigned percent)
    {
        auto& screen = *static_cast<Screen*>(context);
        if (line == screen.line && percent == screen.percent)
            return;
        screen.line = line;
        screen.percent = percent;
        wchar_t room[128];
        TextBuilder text(room, 128);
        text.add(Text(L"sysmaint: wiping files that waited for the restart: ")).addNumber(line);
        text.add(Text(L" of ")).addNumber(lines).add(Text(L", ")).addNumber(percent).add(Text(L" %   \r"));
        show(text.text());
    }
};

/// The system's own name for the Windows folder, or the one in the data shared with every process.
Text windowsFolder(wchar_t* room, std::size_t capacity)
{
    const Text name = L"\\SystemRoot";
    NativeFile folder(native::systemApi());
    Opening how;
    how.followsLinks = true;
    if (folder.open(nullptr, name, how) >= 0)
        return name;
    constexpr ULONG_PTR kSharedUserData = 0x7FFE0000;
    constexpr ULONG_PTR kSystemRoot = 0x30;
    TextBuilder text(room, capacity);
    text.add(Text(L"\\??\\"));
    text.add(
        Text(reinterpret_cast<const wchar_t*>(kSharedUserData + kSystemRoot))); // NOLINT(*-no-int-to-ptr)
    return text.text();
}

native::Status work()
{
    wchar_t room[300];
    Screen screen;
    RunEvents events;
    events.context = &screen;
    events.isOver = &Screen::isOver;
    events.onProgress = &Screen::onProgress;
    const RunReport report = BootRun(native::systemApi(), windowsFolder(room, 300), events).run();
    if (screen.line != 0)
        Screen::show(Text(L"\r\n"));
    if (!report.isListEmpty)
        return report.status;
    const native::Status removed = removeOwnEntry(native::systemApi());
    return removed == native::kObjectNameNotFound ? 0 : removed; // there is no list of programs
}
} // namespace

void NTAPI NtProcessStartup(void*)
{
    const native::Status status = work();
    NtTerminateProcess(reinterpret_cast<HANDLE>(static_cast<LONG_PTR>(-1)),
                       status); // NOLINT(*-no-int-to-ptr)
}
