#include "core/win32/utils/lookup/include/HVKItem.h"

#include "core/win32/utils/checksums/include/FileChecksum.h"
#include "core/win32/utils/paths/include/Win32Path.h"

HVKItem::HVKItem(const wchar_t* path, long priority)
    : m_path(path), m_settled(settledPath(m_path)), m_priority(priority)
{
}

void HVKItem::computeHash(HANDLE cancelEvent)
{
    m_hash = checksumOfFile<CSHA1>({m_settled.c_str(), cancelEvent, nullptr, nullptr});
}
