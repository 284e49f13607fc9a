#pragma once

#include "support/Connections.h"

/// The servers of tests/support/ftp_servers, for the length of a scope.
class FtpServers
{
public:
    explicit FtpServers(const wchar_t* kind)
    {
        unsigned short port = 0;
        EXPECT_EQ(ConnectionListen(m_server.get(), 60000, nullptr), ERROR_SUCCESS);
        EXPECT_EQ(ConnectionGetPort(m_server.get(), &port), ERROR_SUCCESS);
        std::wstring command = LR"(Z:\usr\bin\python3 )";
        command.append(FTP_SERVERS).append(L" ").append(kind).append(L" ").append(std::to_wstring(port));
        STARTUPINFOW startup{};
        PROCESS_INFORMATION process{};
        EXPECT_TRUE(CreateProcessW(nullptr, command.data(), nullptr, nullptr, FALSE, 0, nullptr, nullptr,
                                   &startup, &process));
        void* lifeline = nullptr;
        EXPECT_EQ(ConnectionAccept(m_server.get(), 60000, nullptr, &lifeline), ERROR_SUCCESS);
        m_lifeline.reset(lifeline);
        readLines();
        say("\n"); // it has all that it needs from now on, whoever counts handles
    }
    /// From now on all of them behave.
    void mend()
    {
        say("mend\n");
        readLines();
    }

    /// Waits until a server that stalls does so.
    void awaitStall() { readLines(); }
    /// Lets a server do what it does to a silent client; it has been done when this returns.
    void cue()
    {
        say("cue\n");
        readLines();
    }

    std::map<std::string, unsigned short> ports;
    std::set<std::wstring> entries; // "folder PATH" and "file SIZE PATH"

private:
    void say(const std::string& line)
    {
        EXPECT_EQ(ConnectionWrite(m_lifeline.get(), line.data(), line.size(), 60000, nullptr), ERROR_SUCCESS);
    }
    void readLines()
    {
        for (std::string line; line != "\n";) {
            line.clear();
            char c = 0;
            while (c != '\n') {
                ASSERT_EQ(ConnectionReadAll(m_lifeline.get(), &c, 1, 60000, nullptr), ERROR_SUCCESS);
                line.push_back(c);
            }
            std::istringstream words(line);
            std::string word;
            std::string name;
            unsigned short port = 0;
            if (words >> word >> name >> port && word == "port") {
                ports[name] = port;
            } else if (line != "\n") {
                wchar_t wide[1000]{};
                MultiByteToWideChar(CP_UTF8, 0, line.c_str(), static_cast<int>(line.size()) - 1, wide, 1000);
                entries.insert(wide);
            }
        }
    }

    ConnectionHandle m_server{
        CreateSocketConnection(ConnectionRole::Server, L"ftp lifeline", L"127.0.0.1", 0, 0)};
    ConnectionHandle m_lifeline;
};
