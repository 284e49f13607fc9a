#pragma once

/// The narrow counterpart of IPathValidatorW, for UTF-8. Capacities and lengths are in bytes. Returns 1113
/// for a path that is not valid UTF-8.
struct IPathValidatorA
{
    /// See IPathValidatorW::validate.
    virtual long validate(char* path, unsigned long capacity, unsigned long* needed) = 0;

protected:
    ~IPathValidatorA() = default; // process-wide: never deleted by callers
};
