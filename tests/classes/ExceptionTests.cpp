#include <gtest/gtest.h>

#include <stdexcept>

#include "support/ImportReplacement.h"
#include "win32/communication/include/IMessageHandler.h"

namespace {
constexpr const char* kPlace = PLACE("tests\\x.h", "Class::function", 35);
const std::wstring kWidePlace = L"File: api\\current\\tests\\x.h\nFunction: Class::function\nLine: 35";
constexpr unsigned long kUnknownCode = 0x2FFF1234; // no system has a text for it

std::wstring systemText(unsigned long code)
{
    wchar_t text[512] = L"";
    FormatMessageW(FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS, nullptr, code, 0, text, 512,
                   nullptr);
    return text;
}
} // namespace

TEST(Exceptions, ReportsAndCodesOfTheFourForms)
{
    const std::wstring head = L"An error occured at:\n" + kWidePlace + L"\n";
    const std::wstring system = L"System error: " + systemText(ERROR_ALREADY_EXISTS) + L"\n";
    ASSERT_GT(systemText(ERROR_ALREADY_EXISTS).size(), 3U);

    SetLastError(4711);
    const Exception withCode(kPlace, ERROR_ALREADY_EXISTS);
    EXPECT_EQ(withCode.getText(), head + system);
    EXPECT_EQ(withCode.getSystemText(), systemText(ERROR_ALREADY_EXISTS));
    EXPECT_EQ(withCode.getCode(), 183U);
    EXPECT_EQ(GetLastError(), 183U);
    const Exception withBoth(kPlace, L"my %s text", ERROR_ALREADY_EXISTS);
    EXPECT_EQ(withBoth.getText(), head + L"Message: my %s text\n" + system);

    const Exception unknown(kPlace, kUnknownCode);
    EXPECT_EQ(unknown.getText(), head);
    EXPECT_EQ(unknown.getSystemText(), nullptr);
    EXPECT_EQ(GetLastError(), kUnknownCode);
    EXPECT_EQ(Exception(kPlace, L"m", kUnknownCode).getText(), head + L"Message: m\n");

    // Without a code the last error is the code and stays what it was, also where the system has no text.
    for (const unsigned long code : {static_cast<unsigned long>(ERROR_ALREADY_EXISTS), kUnknownCode}) {
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
    CountedImport<"HeapAlloc", decltype(&HeapAlloc)> allocations(GetModuleHandleW(nullptr));
    allocations.failCall(1, nullptr, 0);
    EXPECT_THROW({ const Exception made(kPlace, ERROR_ALREADY_EXISTS); }, std::bad_alloc);
    const Exception original(kPlace, ERROR_ALREADY_EXISTS);
    allocations.failCall(1, nullptr, 0);
    // NOLINTNEXTLINE(performance-unnecessary-copy-initialization): that it fails is what is asked
    EXPECT_THROW({ const Exception copy(original); }, std::bad_alloc);
}

TEST(Exceptions, BecomeCodesAtTheBoundary)
{
    struct CleanUp
    {
        ~CleanUp() { SetLastError(1); }
    };
    const auto both = [](auto&& raise) {
        const long status = boundary::statusFrame([&]() -> long {
            raise();
            return 0;
        });
        void* handle = boundary::handleFrame([&]() -> void* {
            const CleanUp cleanUp; // runs between the raise and the caller
            SetLastError(2);
            raise();
            return nullptr;
        });
        EXPECT_EQ(handle, INVALID_HANDLE_VALUE);
        return std::make_pair(status, static_cast<long>(GetLastError()));
    };
    EXPECT_EQ(both([] { throw Exception(kPlace, ERROR_ALREADY_EXISTS); }), std::make_pair(183L, 183L));
    EXPECT_EQ(both([] { throw static_cast<long>(ERROR_INVALID_ADDRESS); }), std::make_pair(487L, 487L));
    EXPECT_EQ(both([] { throw std::bad_alloc(); }), std::make_pair(8L, 8L));
    EXPECT_EQ(both([] { throw std::runtime_error("x"); }), std::make_pair(574L, 1L));
    EXPECT_EQ(boundary::statusFrame([] { return 5L; }), 5);
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
    const struct
    {
        unsigned line;
        std::function<void()> call;
    } rows[] = {
        {51, [&] { handler.onMessage(message, message, nullptr); }},
        {64, [&] { handler.onMessage(message, message, 1U, nullptr); }},
        {77, [&] { handler.onMessage(data, data, nullptr); }},
        {90, [&] { handler.onMessage(data, data, 1U, nullptr); }},
        {103, [&] { handler.onMessage(array, array, nullptr); }},
        {116, [&] { handler.onMessage(array, array, 1U, nullptr); }},
        {129, [&] { handler.onMessage(hash, hash, nullptr); }},
        {142, [&] { handler.onMessage(hash, hash, 1U, nullptr); }},
    };
    const HMODULE self = GetModuleHandleW(nullptr);
    std::vector<std::wstring> events;
    CountedImport<"Sleep", decltype(&Sleep)> sleeps(self);
    sleeps.setHook([&](auto, DWORD time) { events.push_back(L"sleep " + std::to_wstring(time)); });
    CountedImport<"OutputDebugStringW", decltype(&OutputDebugStringW)> debug(self);
    debug.setHook([&](auto, const wchar_t* text) { events.push_back(text); });
    CountedImport<"_wassert", void (*)(const wchar_t*, const wchar_t*, unsigned)> asserts(self);
    asserts.setHook([&](auto, const wchar_t* expression, const wchar_t* file, unsigned line) {
        EXPECT_NE(std::wstring(file).find(L"IMessageHandler.h"), std::wstring::npos);
        events.push_back(expression + std::to_wstring(line));
    });
    for (const auto& row : rows) {
        events.clear();
        try {
            row.call();
            ADD_FAILURE() << row.line;
        } catch (const Exception& raised) {
            EXPECT_EQ(raised.getCode(), 120U);
            const std::wstring place =
                L"Function: IMessageHandler::onMessage\nLine: " + std::to_wstring(row.line) + L"\n";
            EXPECT_NE(std::wstring(raised.getText()).find(place), std::wstring::npos);
        }
        EXPECT_EQ(events,
                  (std::vector<std::wstring>{L"================== ASSERT ==================\n",
                                             L"sleep 20000", L"false" + std::to_wstring(row.line - 1)}));
    }
}
