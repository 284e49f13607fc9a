#include <windows.h>

#include <memory>
#include <streambuf>
#include <string>

#include <cereal/archives/binary.hpp>
#include <cereal/types/map.hpp>
#include <cereal/types/string.hpp>
#include <cereal/types/vector.hpp>

#include "Bench.h"
#include "win32/communication/include/HashMessage.h"

namespace {
constexpr std::uint32_t kId = 7;
constexpr std::size_t kParameters = 8;

/// The same data as the message, for the peer.
struct PeerMessage
{
    std::uint32_t kind = 0;
    std::wstring topic;
    std::uint32_t id = 0;
    std::map<std::wstring, std::vector<unsigned char>> parameters;

    template <class Archive>
    void serialize(Archive& archive)
    {
        archive(kind, topic, id, parameters);
    }
};

/// A stream over one string, without the cost of std::stringstream's copies.
class StringBuffer : public std::streambuf
{
public:
    std::string text;
    void rewind() { setg(text.data(), text.data(), text.data() + text.size()); }

protected:
    std::streamsize xsputn(const char* data, std::streamsize size) override
    {
        text.append(data, static_cast<std::size_t>(size));
        return size;
    }
    int_type overflow(int_type c) override
    {
        text.push_back(static_cast<char>(c));
        return c;
    }
};
} // namespace

BenchRows messageRows(BenchScale scale)
{
    const long count = scale(100000);
    const auto message = std::make_shared<HashMessageW>(L"lookups", kId);
    const auto peer = std::make_shared<PeerMessage>();
    peer->topic = L"lookups";
    peer->id = kId;
    for (int i = 0; i < static_cast<int>(kParameters); ++i) {
        const std::wstring name = L"Parameter" + std::to_wstring(i);
        const std::string value(static_cast<std::size_t>(4 + i * 16), static_cast<char>('a' + i));
        message->setParameter(name.c_str(), value.data(), value.size());
        peer->parameters[name].assign(value.begin(), value.end());
    }
    BenchRows rows;
    rows.timed = {{"dump and load a HashMessageW, 8 parameters", "cereal, binary archive", 1.0,
                   static_cast<double>(count),
                   [=] {
                       MemoryOutputByteStream output;
                       for (long i = 0; i < count; ++i) {
                           output.clear();
                           message->dump(0, output);
                           MemoryInputByteStream input(output.getData(), output.getSize());
                           HashMessageW loaded;
                           loaded.load(0, input);
                           require(loaded.getParameters().size() == kParameters && loaded.getId() == kId,
                                   "the message did not come back");
                       }
                   },
                   [=] {
                       StringBuffer buffer;
                       std::ostream output(&buffer);
                       std::istream input(&buffer);
                       for (long i = 0; i < count; ++i) {
                           buffer.text.clear();
                           cereal::BinaryOutputArchive writer(output);
                           writer(*peer);
                           buffer.rewind();
                           PeerMessage loaded;
                           cereal::BinaryInputArchive archive(input);
                           archive(loaded);
                           require(loaded.parameters.size() == kParameters && loaded.id == kId,
                                   "the peer's message did not come back");
                       }
                   }}};
    return rows;
}
