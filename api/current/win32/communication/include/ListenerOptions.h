#pragma once

/// How a listener works.
struct ListenerOptions
{
    unsigned long mostClients = 64; ///< at once; further ones are disconnected as they come
    /// Milliseconds within which a client must greet, a message that has begun must have come, and a client
    /// must have taken an answer. A client that exceeds it is disconnected; between messages it may be
    /// silent.
    unsigned long timeout = 60000;
    /// Bytes of the messages that may wait for their delivery after they were posted. Beyond it clients are
    /// told to try again later; a message larger than that is posted when no other waits.
    unsigned long long mostWaiting = 64ULL << 20U;
};

/// What a listener does and has done.
struct ListenerState
{
    unsigned long clients = 0;           ///< connected now
    unsigned long long posted = 0;       ///< messages posted to the topic
    unsigned long long sent = 0;         ///< messages whose delivery has ended, whatever its code
    unsigned long long disconnected = 0; ///< clients beyond the limit, and those that broke a rule
    long code = 0; ///< why no client can be accepted at the moment; 0: they can. Tried again each second, but
                   ///< after 2250: the connection was disconnected, and listens no more
};
