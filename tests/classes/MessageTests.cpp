#include "support/Scan.h"
#include "win32/communication/include/ArrayMessage.h"
#include "win32/communication/include/DataMessage.h"
#include "win32/communication/include/HashMessage.h"

namespace {
using Bytes = std::string;

/// What loading the bytes raised. They have their own heap block, so the heap detects an over-read.
template <class T>
Raised load(T&& target, const Bytes& bytes)
{
    const auto copy = std::make_unique<char[]>(bytes.size());
    std::copy(bytes.begin(), bytes.end(), copy.get());
    MemoryInputByteStream stream(copy.get(), bytes.size());
    return raised([&] { target.load(0, stream); });
}

/// A step of a form: the bytes it ends at, and the lines that report its failure.
struct Step
{
    std::size_t end;
    long loadLine, dumpLine;
};

/// Cuts the form at every byte, for reading and for writing: the failing step must report it.
template <class T>
void checkEveryCut(const T& object, const std::vector<Step>& steps)
{
    const Bytes whole = dumpOf(object);
    ASSERT_EQ(steps.back().end, whole.size());
    T again;
    load(again, whole);
    EXPECT_EQ(dumpOf(again), whole);
    for (std::size_t length = 0; length < whole.size(); ++length) {
        const auto step =
            std::find_if(steps.begin(), steps.end(), [&](const Step& s) { return length < s.end; });
        EXPECT_EQ(load(T(), whole.substr(0, length)), (Raised{ERROR_READ_FAULT, step->loadLine})) << length;
        const auto room = std::make_unique<unsigned char[]>(length);
        FixedOutputByteStream small(room.get(), length);
        EXPECT_EQ(raised([&] { object.dump(0, small); }), (Raised{ERROR_WRITE_FAULT, step->dumpLine}));
    }
}

const Bytes kOnT7 = {0, 0, 0, 0, 4, 0, 0, 0, 0, 0, 0, 0, 'T', 0, 0, 0, 7, 0, 0, 0};

/// One message of each class with content.
struct Samples
{
    Samples()
    {
        hash.setParameter(L"name", L"value");
        hash.setParameter(L"number", std::uint32_t{1});
        narrow.setParameter("name", "value");
        data.setData("abc", 3);
        array.addElement(makeShared<SerializableW, ParameterW>(3U, "abc"));
    }
    HashMessageW hash{L"T", 7U};
    HashMessageA narrow{"T", 7U};
    DataMessage data{L"T", 7U};
    ArrayMessage array{L"T", 7U};
};

} // namespace

TEST(Messages, BytesOfEveryClass)
{
    EXPECT_EQ(dumpOf(MessageW(L"T", 7)), kOnT7);
    EXPECT_EQ(dumpOf(MessageA("T", 7)), (Bytes{0, 0, 0, 0, 2, 0, 0, 0, 0, 0, 0, 0, 'T', 0, 7, 0, 0, 0}));
    EXPECT_EQ(dumpOf(MessageW(0x04030201U, 7U)), (Bytes{1, 0, 0, 0, 1, 2, 3, 4, 7, 0, 0, 0}));

    HashMessageW hash(L"T", 7U);
    EXPECT_EQ(dumpOf(hash), kOnT7 + (Bytes{0, 0, 0, 0}));
    hash.setParameter(L"b", L"x");
    hash.setParameter(L"B", std::uint32_t{5});
    const Bytes parameters = {2, 0, 0, 0,                                       //
                              4, 0, 0, 0, 0, 0, 0, 0, 'B', 0, 0, 0,             //
                              8, 0, 0, 0, 0, 0, 0, 0, 4,   0, 0, 0, 0, 0, 0, 0, //
                              4, 0, 0, 0, 0, 0, 0, 0, 5,   0, 0, 0,             //
                              4, 0, 0, 0, 0, 0, 0, 0, 'b', 0, 0, 0,             //
                              8, 0, 0, 0, 0, 0, 0, 0, 4,   0, 0, 0, 0, 0, 0, 0, //
                              4, 0, 0, 0, 0, 0, 0, 0, 'x', 0, 0, 0};
    EXPECT_EQ(dumpOf(hash), kOnT7 + parameters);

    DataMessage data(L"T", 7U);
    EXPECT_EQ(dumpOf(data),
              kOnT7 + (Bytes{8, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0}));
    data.setData("abc", 3);
    const Bytes abc = {8, 0, 0, 0, 0, 0, 0, 0, 3, 0, 0, 0, 0, 0, 0, 0, 3, 0, 0, 0, 0, 0, 0, 0, 'a', 'b', 'c'};
    EXPECT_EQ(dumpOf(data), kOnT7 + abc);

    ArrayMessage array(L"T", 7U);
    array.addElement(makeShared<SerializableW, ParameterW>(3U, "abc"));
    array.addElement(makeShared<SerializableW, MessageW>(L"T", 7U));
    EXPECT_EQ(dumpOf(array), kOnT7 + (Bytes{2, 0, 0, 0}) + abc + kOnT7);

    // A missing topic is written as a text and read back as one.
    MessageW loaded;
    load(loaded, dumpOf(MessageW(nullptr, 7)));
    EXPECT_STREQ(loaded.getTopicName(), L"<dump error>");
}

TEST(Messages, EveryCutFailsWithItsLine)
{
    checkEveryCut(MessageW(L"T", 7), {{4, 258, 299}, {16, 266, 307}, {20, 280, 321}});
    checkEveryCut(MessageA("T", 7), {{4, 258, 299}, {14, 266, 307}, {18, 280, 321}});
    checkEveryCut(MessageW(1U, 7U), {{4, 258, 299}, {8, 273, 314}, {12, 280, 321}});
    checkEveryCut(ParameterA(3, "abc"), {{16, 149, 180}, {27, 157, 184}});
    checkEveryCut(ParameterW(3, "abc"), {{16, 150, 181}, {27, 158, 185}});

    Samples samples;
    for (const std::size_t length : {15, 16, 17}) { // around the size stored in the entry itself
        const std::wstring name(length, L'n');
        samples.hash.setParameter(name.c_str(), static_cast<std::uint32_t>(length));
        std::uint32_t value = 0;
        EXPECT_EQ(HashMessageW(samples.hash).getParameter(name.c_str(), value), ERROR_SUCCESS);
        EXPECT_EQ(value, length);
    }
    checkEveryCut(samples.hash, {{dumpOf(samples.hash).size(), 0, 0}});
    checkEveryCut(samples.narrow, {{dumpOf(samples.narrow).size(), 0, 0}});
    checkEveryCut(samples.data, {{20, 141, 172}, {36, 145, 176}, {47, 153, 180}});
    checkEveryCut(samples.array, {{20, 371, 422}, {24, 375, 426}, {51, 391, 436}});
}

TEST(Messages, LyingFieldsAreRefused)
{
    const Bytes good = dumpOf(ParameterW(3, "abc"));
    for (const char size : Bytes{2, 4, '\xFF'}) { // the size field against the blob
        Bytes bytes = good;
        bytes[8] = size;
        EXPECT_EQ(load(ParameterW(), bytes), (Raised{30, 158}));
        EXPECT_EQ(load(DataMessage(), kOnT7 + bytes), (Raised{30, 153}));
    }
    Bytes huge = good;
    huge.replace(16, 8, 8, '\xFF'); // length + 1 would wrap
    EXPECT_EQ(load(ParameterW(), huge), (Raised{30, 158}));
    const Bytes wide = {9, 0, 0, 0, 0, 0, 0, 0, 1, 2, 3, 4, 5, 6, 7, 8, 9}; // more than the field holds
    EXPECT_EQ(load(ParameterW(), wide + good), (Raised{30, 150}));
    const Bytes narrow = Bytes{1, 0, 0, 0, 0, 0, 0, 0, 3} + good.substr(16);
    EXPECT_EQ(load(ParameterW(), narrow), Raised{}) << "a shorter field fills the low bytes";

    for (const Bytes& topic :
         {Bytes{2, 0, 0, 0, 0, 0, 0, 0, 'T', 0}, Bytes{3, 0, 0, 0, 0, 0, 0, 0, 'T', 0, 0},
          Bytes{0, 0, 0, 0, 0, 0, 0, 0},
          Bytes{4, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0}}) // no terminator, half a character, nothing, two of them
        EXPECT_EQ(load(MessageW(), Bytes{0, 0, 0, 0} + topic + Bytes{7, 0, 0, 0}), (Raised{30, 266}));
    EXPECT_EQ(load(HashMessageW(), kOnT7 + Bytes(4, '\xFF')), (Raised{30, 0}));
    EXPECT_EQ(load(ArrayMessage(), kOnT7 + Bytes(4, '\xFF')), (Raised{30, 391}));
    EXPECT_EQ(load(MessageW(), Bytes{9, 0, 0, 0, 7, 0, 0, 0}), Raised{}) << "an unknown kind has no topic";
}

TEST(Messages, ParametersAreReadWholeOrNotAtAll)
{
    const Bytes good = dumpOf(ParameterW(3, "abc"));
    for (const char size : Bytes{4, 16, 80}) { // a name's blob that is longer than its text is refused
        Bytes name(static_cast<std::size_t>(size), '\0');
        name[0] = 'b';
        Bytes one = kOnT7 + Bytes{1, 0, 0, 0, size, 0, 0, 0, 0, 0, 0, 0};
        one.append(name).append(good);
        HashMessageW hash;
        EXPECT_EQ(load(hash, one), size == 4 ? Raised{} : (Raised{30, 0}));
        const ParameterW* parameter = nullptr;
        EXPECT_EQ(hash.getParameter(L"b", parameter), size == 4 ? ERROR_SUCCESS : ERROR_NOT_FOUND);
        EXPECT_EQ(load(hash, one.substr(0, one.size() - 1)), (Raised{30, 0}));
        EXPECT_TRUE(hash.getParameters().empty()) << "what was read only in part";
    }
    // Out of order, and one name twice: the later one counts. What was read completely stays when the rest is
    // missing.
    const auto entry = [](char name, std::uint32_t value) {
        return Bytes{4, 0, 0, 0, 0, 0, 0, 0, name, 0, 0, 0} + dumpOf(ParameterW(sizeof value, &value));
    };
    const Bytes three = kOnT7 + Bytes{3, 0, 0, 0} + entry('b', 1) + entry('a', 2) + entry('b', 3);
    for (const std::size_t missing : {0, 1}) {
        HashMessageW hash;
        EXPECT_EQ(load(hash, three.substr(0, three.size() - missing)),
                  missing == 0 ? Raised{} : (Raised{30, 0}));
        std::uint32_t value = 0;
        EXPECT_EQ(hash.getParameter(L"a", value), ERROR_SUCCESS);
        EXPECT_EQ(value, 2U);
        EXPECT_EQ(hash.getParameter(L"b", value), missing == 0 ? ERROR_SUCCESS : ERROR_NOT_FOUND);
        EXPECT_EQ(value, missing == 0 ? 3U : 2U);
    }
}

TEST(Messages, ArgumentsAndEmptyPointers)
{
    EXPECT_EQ(raised([] { ParameterA(1, nullptr); }), (Raised{87, 64}));
    EXPECT_EQ(raised([] { ParameterW(1, nullptr); }), (Raised{87, 65}));
    HashMessageW hash(L"T", 7U);
    EXPECT_EQ(hash.setParameter(nullptr, std::uint32_t{1}), ERROR_INVALID_PARAMETER);
    EXPECT_EQ(hash.setParameter(L"x", nullptr, 1), ERROR_INVALID_PARAMETER);
    EXPECT_TRUE(hash.getParameters().empty());
    hash.setParameter(L"number", std::uint32_t{0x50005});
    hash.setParameter(L"text", L"text");
    std::uint32_t value = 0;
    const wchar_t* text = nullptr;
    EXPECT_EQ(hash.getParameter(L"number", value), ERROR_SUCCESS);
    EXPECT_EQ(value, 0x50005U);
    EXPECT_EQ(hash.getParameter(L"text", value), ERROR_INVALID_PARAMETER);
    EXPECT_EQ(hash.getParameter(L"number", text), ERROR_INVALID_PARAMETER);
    EXPECT_EQ(hash.getParameter(L"Number", value), ERROR_NOT_FOUND);
    hash.setParameter(L"empty", HashMessageW::ParameterPtr());
    EXPECT_EQ(hash.getParameter(L"empty", value), ERROR_NOT_FOUND);
    MemoryOutputByteStream stream;
    EXPECT_EQ(raised([&] { hash.dump(0, stream); }), (Raised{487, 0}));
    ArrayMessage array(L"T", 7U);
    array.addElement(ArrayMessage::Element());
    EXPECT_EQ(raised([&] { array.dump(0, stream); }), (Raised{487, 0}));

    // Copies own what they show.
    auto* original = new DataMessage(L"topic", 7U);
    original->setData("abc", 3);
    const DataMessage copy(*original);
    DataMessage assigned;
    assigned = *original;
    const Bytes bytes = dumpOf(*original);
    delete original;
    EXPECT_EQ(dumpOf(copy), bytes);
    EXPECT_EQ(dumpOf(assigned), bytes);
}

// Any wrong bytes: no crash, no over-read, and nothing allocated beyond what the stream holds.
TEST(Messages, HostileBytes)
{
    const Samples samples;
    const Bytes lies[] = {
        {0}, {1}, {-1}, Bytes(4, '\0'), "\xFE\xFF\xFF\x7F", Bytes(4, '\xFF'), Bytes(8, '\xFF')};
    std::size_t largest = 0;
    const Replaced<"HeapAlloc", decltype(&HeapAlloc)> allocations(
        before([&](HANDLE, DWORD, SIZE_T size) { largest = std::max<std::size_t>(largest, size); }));
    for (const Bytes& whole : {dumpOf(samples.hash), dumpOf(samples.data), dumpOf(samples.array),
                               dumpOf(samples.narrow), dumpOf(MessageA("topic", 1))})
        for (std::size_t at = 0; at < whole.size(); ++at)
            for (const Bytes& lie : lies) {
                Bytes bytes = whole;
                std::copy_n(lie.begin(), std::min(lie.size(), bytes.size() - at), &bytes[at]);
                const std::unique_ptr<SerializableW> targets[] = {
                    std::make_unique<MessageW>(), std::make_unique<HashMessageW>(),
                    std::make_unique<DataMessage>(), std::make_unique<ArrayMessage>()};
                for (const auto& target : targets) {
                    largest = 0;
                    const Raised result = load(*target, bytes);
                    EXPECT_TRUE(result.first == 0 || result.first == ERROR_READ_FAULT) << result.first;
                    EXPECT_LE(largest, bytes.size() + 1024);
                }
                EXPECT_EQ(load(HashMessageA(), bytes).second, 0);
            }
}

TEST(Messages, FileStreams)
{
    const std::wstring path = scratchFolder() + L"\\message";
    const HANDLE file = CreateFileW(path.c_str(), GENERIC_READ | GENERIC_WRITE, 0, nullptr, CREATE_NEW,
                                    FILE_FLAG_DELETE_ON_CLOSE, nullptr);
    const Bytes whole = dumpOf(MessageW(L"T", 7));
    FileOutputByteStream output(file);
    MessageW(L"T", 7).dump(0, output);
    MessageW(L"T", 7).dump(0, output);
    SetFilePointer(file, static_cast<LONG>(whole.size()), nullptr, FILE_BEGIN);
    FileInputByteStream input(file);
    EXPECT_EQ(input.getRemaining(), whole.size());
    MessageW loaded;
    EXPECT_EQ(loaded.load(0, input), ERROR_SUCCESS);
    EXPECT_EQ(dumpOf(loaded), whole);
    EXPECT_EQ(raised([&] { loaded.load(0, input); }), (Raised{30, 258}));
    CloseHandle(file);
    FileOutputByteStream closed(INVALID_HANDLE_VALUE);
    EXPECT_EQ(raised([&] { MessageW(L"T", 7).dump(0, closed); }), (Raised{29, 299}));
}
