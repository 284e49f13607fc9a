#pragma once

#include <string>

#include "core/win32/utils/connections/include/Endpoint.h"

/// The path of the pipe that a connection's name stands for: what is before the first backslash. Raises 87
/// for a name that is not the name of a pipe, or that the system would read as another path.
[[nodiscard]] std::wstring pipePath(const wchar_t* connectionName);

/// Connects to a pipe. The server may identify this process's user, and not act as it.
class PipeClient final : public Endpoint
{
public:
    explicit PipeClient(std::wstring path) : m_path(std::move(path)) {}
    [[nodiscard]] WirePtr connect(const WaitLimits& limits) override;

private:
    std::wstring m_path;
};

/// Serves a pipe to clients on this machine that run as its own user or as administrators. While it listens
/// there is always an instance of the pipe that is its own, so nobody else can take the name. Only one
/// instance awaits a client, and every thread in accept watches it: a client is never left at an instance
/// that nobody watches.
class PipeServer final : public Endpoint
{
public:
    explicit PipeServer(std::wstring path) : m_path(std::move(path)) {}
    PipeServer(const PipeServer&) = delete;
    PipeServer& operator=(const PipeServer&) = delete;
    ~PipeServer() override { stopListening(); }

    void listen(const WaitLimits& limits) override;
    [[nodiscard]] WirePtr accept(const WaitLimits& limits) override;
    void stopListening() noexcept override;

private:
    [[nodiscard]] Win32Handle makeInstance(bool first) const;
    [[nodiscard]] Win32Handle takeClient();
    [[nodiscard]] long awaitClient() noexcept;
    void dismissClient() noexcept;

    std::wstring m_path;
    ReadWriteLock m_lock;
    Win32Handle m_instance; // while it listens: the one that awaits a client
    Win32Handle m_event;    // a client may have come
    OVERLAPPED m_awaiting{};
    bool m_isAwaiting = false; // the system has m_awaiting
};
