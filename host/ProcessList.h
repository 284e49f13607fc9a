#pragma once

#include <string>
#include <vector>

#include "OwnedText.h"

#include "core/win32/utils/processmanager/api.h"

/// Opens the process manager for a scope.
class ProcessManagerScope
{
public:
    /// Throws the code.
    ProcessManagerScope()
    {
        if (const long code = CreateProcessManager(); code != ERROR_SUCCESS)
            throw code;
    }
    ProcessManagerScope(const ProcessManagerScope&) = delete;
    ProcessManagerScope& operator=(const ProcessManagerScope&) = delete;
    ~ProcessManagerScope() { CloseProcessManager(); }
};

using ProcessHandle = SmartHandle<CloseProcess>;

/// The processes that a call of the manager returns. Throws its code.
template <class Call>
std::vector<ProcessEntry> processesOf(OwnedBuffer<ProcessEntry>& buffer, Call&& call)
{
    std::size_t count = 0;
    if (const long code = call(buffer.target(), &count); code != ERROR_SUCCESS)
        throw code;
    return {buffer.get(), buffer.get() + count};
}

/// How the list of processes is shown.
struct ProcessListing
{
    bool asTree;
    bool asJson;
    std::wstring user; // empty: everybody's
    std::wstring sort; // a column's name
};

/// Whether a list can be sorted by this column; the help names them.
[[nodiscard]] bool isSortColumn(const std::wstring& name);
/// Prints the list on results(). Throws a code.
void printProcesses(const ProcessListing& listing);
