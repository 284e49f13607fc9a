#include "core/win32/utils/lookup/include/HVKRequest.h"

#include <cstdlib>
#include <ctime>

namespace {
/// The server tells requests of one connection apart by it; it is no secret.
HVKRequest::Id drawId() noexcept
{
    std::srand(static_cast<unsigned>(std::time(nullptr)));
    const auto first = static_cast<unsigned>(std::rand());  // NOLINT(cert-msc30-c, cert-msc50-cpp)
    const auto second = static_cast<unsigned>(std::rand()); // NOLINT(cert-msc30-c, cert-msc50-cpp)
    return {0, 0, 0, static_cast<unsigned char>((first << 16U | second) & 0xFFU)};
}
} // namespace

void HVKRequest::build()
{
    m_buffer.clear();
    m_count = 0;
    m_id = drawId();
    if (m_items.empty() || m_items.size() > kMostItems)
        return;
    m_buffer.reserve(kHeaderLength + m_items.size() * kHashLength);
    m_buffer.push_back(m_first);
    m_buffer.insert(m_buffer.end(), m_id.begin(), m_id.end());
    m_buffer.push_back(static_cast<unsigned char>(m_items.size()));
    m_buffer.push_back(m_second);
    m_buffer.push_back(1);
    m_buffer.push_back(0);
    for (; !m_items.empty(); m_items.pop_front(), ++m_count)
        m_buffer.insert(m_buffer.end(), m_items.front().begin(), m_items.front().end());
}
