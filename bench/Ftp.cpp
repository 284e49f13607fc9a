// Walks of a folder on an FTP server of this machine, against curl, which lists the same folders in one run
// over one connection.

#include <windows.h>

#include <memory>
#include <string>

#include "Bench.h"
#include "CountingHandler.h"
#include "core/win32/utils/connections/api.h"
#include "core/win32/utils/ftp/api.h"

namespace {
constexpr unsigned long kTimeout = 60000;

/// The servers of tests/support/ftp_servers, and curl, which is started there.
class Servers
{
public:
    Servers()
    {
        unsigned short port = 0;
        require(ConnectionListen(m_server, kTimeout, nullptr) == ERROR_SUCCESS &&
                    ConnectionGetPort(m_server, &port) == ERROR_SUCCESS,
                "no socket");
        std::wstring command = LR"(Z:\usr\bin\python3 )";
        command.append(FTP_SERVERS).append(L" hundred ").append(std::to_wstring(port));
        STARTUPINFOW startup{};
        PROCESS_INFORMATION process{};
        require(CreateProcessW(nullptr, command.data(), nullptr, nullptr, FALSE, 0, nullptr, nullptr,
                               &startup, &process) &&
                    ConnectionAccept(m_server, kTimeout, nullptr, &m_lifeline) == ERROR_SUCCESS,
                "no FTP servers");
        for (std::string line = readLine(); !line.empty(); line = readLine()) {
            if (line.starts_with("port pyftpdlib "))
                ports[0] = static_cast<unsigned short>(std::stoul(line.substr(15)));
            if (line.starts_with("port vsftpd "))
                ports[1] = static_cast<unsigned short>(std::stoul(line.substr(12)));
        }
    }
    Servers(const Servers&) = delete;
    Servers& operator=(const Servers&) = delete;
    ~Servers()
    {
        CloseConnection(m_lifeline); // which ends them
        CloseConnection(m_server);
    }

    /// Lets curl list the folders of a server. Returns how many entries that were.
    unsigned long long curl(unsigned short port)
    {
        const std::string command = "curl " + std::to_string(port) + "\n";
        require(ConnectionWrite(m_lifeline, command.data(), command.size(), kTimeout, nullptr) ==
                    ERROR_SUCCESS,
                "curl cannot be asked");
        return std::stoull(readLine());
    }

    unsigned short ports[2]{};

private:
    std::string readLine()
    {
        std::string line;
        for (char c = 0; c != '\n'; line.push_back(c))
            require(ConnectionReadAll(m_lifeline, &c, 1, kTimeout, nullptr) == ERROR_SUCCESS,
                    "the FTP servers have ended");
        line.pop_back();
        return line;
    }

    void* m_server = CreateSocketConnection(ConnectionRole::Server, L"bench lifeline", L"127.0.0.1", 0, 0);
    void* m_lifeline = nullptr;
};

unsigned long long walk(unsigned short port)
{
    CountingHandler counter;
    void* engine = CreateFtpScanEngine(L"bench");
    for (const unsigned long key : {kContainerFound, kLeafFound})
        FtpSEngineRegisterHandler(engine, counter, key, 0, 0);
    FtpSEngineAddPath(engine, L"127.0.0.1", L"/", port, L"ftp", L"secret");
    ScanOptions options;
    options.depthGiven = 1;
    options.depth = 65535;
    const SharedPtr<IScanValidator> validator(DllGetScanValidator());
    require(FtpSEngineScan(engine, nullptr, validator, options) == ERROR_SUCCESS, "an FTP scan failed");
    CloseFtpScanEngine(engine); // and its session
    return counter.count;
}
} // namespace

BenchRows ftpRows(BenchScale /*scale*/)
{
    constexpr double kFolders = 100;
    constexpr double kGoal = 1 / 1.2;
    constexpr int kTurns = 15; // of a few hundredths of a second, with processes of two sides and a server
    BenchRows rows;
    const auto servers = std::make_shared<std::unique_ptr<Servers>>();
    const auto found = std::make_shared<unsigned long long>(0);
    for (const int number : {0, 1}) {
        rows.timed.push_back(
            {number == 0 ? "FTP walk of 100 folders, pyftpdlib" : "FTP walk of 100 folders, vsftpd",
             "curl, one run and connection", kGoal, kFolders,
             [=] { *found = walk((*servers)->ports[number]); },
             [=] {
                 require((*servers)->curl((*servers)->ports[number]) == *found,
                         "curl lists another number of entries");
             },
             [=] {
                 if (!*servers)
                     *servers = std::make_unique<Servers>();
             }});
        rows.timed.back().turns = kTurns;
    }
    return rows;
}
