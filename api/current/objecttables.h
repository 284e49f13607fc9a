#pragma once

/// Destroys the object tables of all families and with them every object that is still open. For the moment
/// when the library is unloaded while the process goes on.
void destroyObjectTables() noexcept;
