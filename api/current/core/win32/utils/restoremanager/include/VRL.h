#pragma once

#include "win32/restoremanager/include/IVRL.h"

/// See IVRL for what its operations promise.
class VRL final : public IVRL
{
public:
    long createSnapshot(const wchar_t* tool, const wchar_t* name, const wchar_t* comment, const wchar_t* user,
                        const wchar_t* password) override;
    long restoreSnapshot(std::uint32_t mode, const wchar_t* tool, const wchar_t* user,
                         const wchar_t* password, const wchar_t* name, const wchar_t* time) override;
};
