#pragma once

#include <memory>

/// A static object that survives the end of the process. It is destroyed only on request.
template <class T>
class Undestroyed
{
public:
    Undestroyed() : m_object() {}
    Undestroyed(const Undestroyed&) = delete;
    Undestroyed& operator=(const Undestroyed&) = delete;
    ~Undestroyed() {} // NOLINT(modernize-use-equals-default): keeps the object alive

    [[nodiscard]] T& get() noexcept { return m_object; }
    void destroy() noexcept { std::destroy_at(&m_object); }

private:
    union
    {
        T m_object;
    };
};
