#pragma once

/// Destroys the object tables of all families and with them every object that is still open. For the moment
/// when the library is unloaded while the process goes on.
void destroyObjectTables() noexcept;

/// Subscribes the table of a class to the topic of its load and dump requests, or takes it off. Returns 0, 87
/// for a null name, 1168 for a class without a table, or the topic's code.
long serveObjectRequests(const wchar_t* className, bool serve);
