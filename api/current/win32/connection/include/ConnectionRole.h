#pragma once

/// Which end of a connection an object is.
enum class ConnectionRole : unsigned long
{
    Client = 0, ///< connects to a server
    Server = 1, ///< listens and accepts clients
};
