#pragma once

#include <algorithm>
#include <cstdint>
#include <map>
#include <utility>

/// The clients of a listener by their own numbers, also between their connections, with what each has posted
/// last. Of more than `kMost` the one that has been silent for longest is forgotten, but none whose post is
/// under way.
class KnownClients
{
public:
    static constexpr std::size_t kMost = 1024;

    struct Client
    {
        std::uint64_t lastNumber = 0;
        std::uint64_t lastUse = 0;
        bool isPosting = false;
    };

    /// The client, whose post begins: it is known until who calls has set `isPosting` back. Null while
    /// another post of it is under way. Raises std::bad_alloc.
    [[nodiscard]] Client* begin(std::uint64_t number)
    {
        Client& client = m_clients[number];
        client.lastUse = ++m_uses;
        if (std::exchange(client.isPosting, true))
            return nullptr;
        if (m_clients.size() > kMost)
            forgetOne();
        return &client;
    }
    [[nodiscard]] std::size_t count() const noexcept { return m_clients.size(); }

private:
    void forgetOne() noexcept
    {
        const auto silent =
            std::min_element(m_clients.begin(), m_clients.end(), [](const auto& one, const auto& other) {
                return std::pair(one.second.isPosting, one.second.lastUse) <
                       std::pair(other.second.isPosting, other.second.lastUse);
            });
        if (!silent->second.isPosting)
            m_clients.erase(silent);
    }

    std::map<std::uint64_t, Client> m_clients;
    std::uint64_t m_uses = 0;
};
