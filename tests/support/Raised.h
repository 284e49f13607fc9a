#pragma once

#include "core/win32/utils/objectmanager/include/Exception.h"
#include "support/Test.h"

/// What an operation raised: the code, and the line of its place text or 0 for a bare long. Zeros: nothing.
using Raised = std::pair<long, long>;

template <class Operation>
Raised raised(Operation&& operation)
{
    try {
        operation();
        return {};
    } catch (const Exception& exception) {
        const std::wstring text = exception.getText();
        const std::size_t line = text.find(L"Line: ");
        return {static_cast<long>(exception.getCode()),
                line == std::wstring::npos ? 0 : std::stol(text.substr(line + 6))};
    } catch (const long code) {
        return {code, 0};
    }
}

/// The code alone.
template <class Operation>
unsigned long codeOf(Operation&& operation)
{
    return static_cast<unsigned long>(raised(operation).first);
}
