#pragma once

#include "support/FtpServers.h"

/// A server on loopback that takes no connection and whose backlog is full: connecting to it hangs.
class FullServer
{
public:
    [[nodiscard]] unsigned short getPort() const { return m_servers.ports.at("full"); }

private:
    FtpServers m_servers{L"full"};
};
