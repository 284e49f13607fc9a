#pragma once

#include "support/Connections.h"

/// A lookup server on loopback that keeps what it is asked, and answers as the test says.
class LookupServer
{
public:
    /// What to answer a request with. The connection is for those that do more than answer.
    using Answer = std::function<std::string(const std::string& request, void* connection)>;

    explicit LookupServer(Answer answer) : m_answer(std::move(answer))
    {
        EXPECT_EQ(ConnectionListen(m_server.get(), 60000, nullptr), ERROR_SUCCESS);
        EXPECT_EQ(ConnectionGetPort(m_server.get(), &m_port), ERROR_SUCCESS);
        m_thread = std::thread([this] { serve(); });
    }
    LookupServer(LookupServer&&) = delete;
    ~LookupServer()
    {
        m_stopping = true;
        ConnectionDisconnect(m_server.get());
        m_thread.join();
    }

    [[nodiscard]] unsigned short getPort() const { return m_port; }
    [[nodiscard]] std::vector<std::string> getRequests()
    {
        const std::lock_guard guard(m_mutex);
        return m_requests;
    }
    /// The right answer: for each hash its first byte.
    static std::string statuses(const std::string& request, void* = nullptr)
    {
        std::string answer = request.substr(1, 5);
        for (std::size_t at = 9; at < request.size(); at += 20)
            answer += request[at];
        return answer;
    }

private:
    void serve()
    {
        void* client = nullptr;
        while (!m_stopping && ConnectionAccept(m_server.get(), 60000, nullptr, &client) == ERROR_SUCCESS) {
            const ConnectionHandle owner(client);
            std::string request(9, '\0');
            if (ConnectionReadAll(client, request.data(), 9, 60000, nullptr) != ERROR_SUCCESS)
                continue;
            request.resize(9 + std::size_t{20} * static_cast<unsigned char>(request[5]));
            if (ConnectionReadAll(client, request.data() + 9, request.size() - 9, 60000, nullptr) != 0)
                continue;
            {
                const std::lock_guard guard(m_mutex);
                m_requests.push_back(request);
            }
            const std::string answer = m_answer(request, client);
            ConnectionWrite(client, answer.data(), answer.size(), 60000, nullptr);
        }
    }

    Answer m_answer;
    ConnectionHandle m_server{CreateSocketConnection(kServer, L"lookup server", L"127.0.0.1", 0, 0)};
    unsigned short m_port = 0;
    std::atomic<bool> m_stopping{false};
    std::mutex m_mutex;
    std::vector<std::string> m_requests;
    std::thread m_thread;
};
