#pragma once

/// The narrow twin of IPathValidatorW, for UTF-8: capacities and lengths are in bytes, and 1113 is returned
/// for a path that is not valid UTF-8.
struct IPathValidatorA
{
    /// See IPathValidatorW::validate.
    virtual long validate(char* path, unsigned long capacity, unsigned long* needed) = 0;

protected:
    ~IPathValidatorA() = default; // process-wide: callers never delete it
};
