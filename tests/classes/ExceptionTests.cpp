#include "support/ImportReplacement.h"
#include "support/Test.h"
#include "win32/communication/include/IMessageHandler.h"

namespace {
constexpr const char* kPlace = PLACE("tests\\x.h", "Class::function", 35);
const std::wstring kWidePlace = L"File: api\\current\\tests\\x.h\nFunction: Class::function\nLine: 35";
constexpr unsigned long kUnknownCode = 0x2FFF1234; // no system has a text for it

std::wstring systemText(unsigned long code)
{
    wchar_t text[512] = L"";
    constexpr DWORD kFlags = FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS;
    FormatMessageW(kFlags, nullptr, code, 0, text, 512, nullptr);
    return text;
}
} // namespace

TEST(Exceptions, ReportsAndCodesOfTheFourForms)
{
    const std::wstring head = L"An error occured at:\n" + kWidePlace + L"\n";
    const std::wstring text = systemText(ERROR_ALREADY_EXISTS);
    ASSERT_GT(text.size(), 3U);
    EXPECT_EQ(Exception(kPlace, kUnknownCode).getSystemText(), nullptr);
    const std::pair<unsigned long, std::wstring> rows[] = {
        {ERROR_ALREADY_EXISTS, L"System error: " + text + L"\n"}, {kUnknownCode, L""}};
    for (const auto& [code, system] : rows) {
        SetLastError(4711);
        const Exception withCode(kPlace, code);
        EXPECT_EQ(withCode.getText(), head + system);
        EXPECT_EQ(withCode.getCode(), code);
        EXPECT_EQ(GetLastError(), code);
        EXPECT_EQ(Exception(kPlace, L"my %s", code).getText(), (head + L"Message: my %s\n").append(system));
        // Without a code the last error is the code and stays unchanged, also when the system has no text for
        // it.
        SetLastError(code);
        EXPECT_EQ(Exception(kPlace).getCode(), code);
        EXPECT_EQ(GetLastError(), code);
        EXPECT_EQ(Exception(kPlace, L"m").getCode(), code);
        EXPECT_EQ(GetLastError(), code);
    }
}

TEST(Exceptions, CopiesAreTheirOwn)
{
    auto* original = new Exception(kPlace, L"m", ERROR_ALREADY_EXISTS);
    Exception copy(*original);
    Exception assigned(kPlace, kUnknownCode);
    assigned = *original;
    const std::wstring text = original->getText();
    EXPECT_NE(copy.getText(), original->getText());
    EXPECT_NE(copy.getSystemText(), original->getSystemText());
    delete original;
    for (const Exception& each : {copy, assigned}) {
        EXPECT_EQ(each.getText(), text);
        EXPECT_EQ(each.getSystemText(), systemText(ERROR_ALREADY_EXISTS));
        EXPECT_EQ(each.getCode(), 183U);
    }
}

TEST(Exceptions, HaveNoFallbackWithoutMemory)
{
    const Exception original(kPlace, ERROR_ALREADY_EXISTS);
    Replaced<"HeapAlloc", decltype(&HeapAlloc)> allocations(1, nullptr, 0);
    EXPECT_THROW(throw Exception(kPlace, ERROR_ALREADY_EXISTS), std::bad_alloc);
    allocations.failCall(1, nullptr, 0);
    EXPECT_THROW(throw Exception(original), std::bad_alloc);
}

// The last error that a handle function leaves, with anything that runs between the raise and the caller.
TEST(Exceptions, BecomeTheLastErrorAtTheBoundary)
{
    struct CleanUp
    {
        ~CleanUp() { SetLastError(1); }
    };
    const std::pair<void (*)(), unsigned long> rows[] = {
        {[] { throw Exception(kPlace, ERROR_ALREADY_EXISTS); }, ERROR_ALREADY_EXISTS},
        {[] { throw static_cast<long>(ERROR_INVALID_ADDRESS); }, ERROR_INVALID_ADDRESS},
        {[] { throw std::bad_alloc(); }, ERROR_NOT_ENOUGH_MEMORY},
        {[] { throw std::runtime_error("x"); }, 1}};
    for (const auto& row : rows) {
        void* const handle = boundary::handleFrame([&]() -> void* {
            const CleanUp cleanUp;
            row.first();
            return nullptr;
        });
        EXPECT_EQ(handle, INVALID_HANDLE_VALUE);
        EXPECT_EQ(GetLastError(), row.second);
    }
}

// A message that nobody serves stops its thread for 20 seconds, says why, and gives 120.
TEST(Exceptions, UnservedMessagesFailTheirAssertion)
{
    struct Handler : IMessageHandler
    {
    } handler;
    MessageW message;
    DataMessage data;
    ArrayMessage array;
    HashMessageW hash;
    std::wstring events;
    const Replaced<"Sleep", decltype(&Sleep)> sleeps(
        [&](auto, DWORD time) { events += L"sleep " + std::to_wstring(time) + L"\n"; });
    const Replaced<"OutputDebugStringW", decltype(&OutputDebugStringW)> debug(
        [&](auto, const wchar_t* text) { events += text; });
    const Replaced<"_wassert", void (*)(const wchar_t*, const wchar_t*, unsigned)> asserts(
        [&](auto, const wchar_t* expression, const wchar_t* file, unsigned line) {
            EXPECT_NE(std::wstring(file).find(L"IMessageHandler.h"), std::wstring::npos);
            events += expression + std::to_wstring(line);
        });
    unsigned line = 51; // of the first form
    const auto check = [&](auto& message, auto... value) {
        events.clear();
        try {
            handler.onMessage(message, message, value..., nullptr);
            ADD_FAILURE() << line;
        } catch (const Exception& raised) {
            EXPECT_EQ(raised.getCode(), 120U);
            const auto at = L"Function: IMessageHandler::onMessage\nLine: " + std::to_wstring(line) + L"\n";
            EXPECT_NE(std::wstring(raised.getText()).find(at), std::wstring::npos);
        }
        EXPECT_EQ(events, L"================== ASSERT ==================\nsleep 20000\nfalse" +
                              std::to_wstring(line - 1));
        line += 13;
    };
    const auto checkBoth = [&](auto& message) { check(message), check(message, 1U); };
    checkBoth(message), checkBoth(data), checkBoth(array), checkBoth(hash);
}
