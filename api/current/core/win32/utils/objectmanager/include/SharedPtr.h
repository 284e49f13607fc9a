#pragma once

#include <windows.h>

#include <atomic>
#include <new>
#include <utility>

#include "core/win32/utils/objectmanager/include/Raise.h"

/// Destroys the object of a SharedPtr: plain `delete`.
template <class T>
struct Delete
{
    void operator()(T* object) const noexcept { delete object; }
};

/// Reference-counted owner of one object. Copies share a count block on the heap; the block destroys the
/// object with the last copy, in the module that created the first one. An empty pointer owns a block too,
/// one shared by all empty pointers of a module, so creating one needs no memory and cannot fail.
///
/// Copying and releasing are safe on any thread, but two threads must not change one SharedPtr object at
/// once. Creating a pointer raises a bare 8 when memory for the block runs out; the object passed in is
/// destroyed then, so nothing leaks.
template <class T, class Deleter = Delete<T>>
class SharedPtr
{
public:
    SharedPtr() noexcept : m_block(emptyBlock()) {}
    explicit SharedPtr(T* object) : m_block(makeBlock(object)) {}
    /// Creates an object inside the count block, as makeShared does.
    template <class... Arguments>
    explicit SharedPtr(std::in_place_t, Arguments&&... arguments)
        : m_block(new InPlaceBlock<T>(std::forward<Arguments>(arguments)...))
    {
    }
    SharedPtr(const SharedPtr& other) noexcept : m_block(other.m_block) { m_block->addReference(); }
    virtual ~SharedPtr() { m_block->release(); }

    SharedPtr& operator=(const SharedPtr& other) noexcept // NOLINT(bugprone-unhandled-self-assignment)
    {
        // The new block is held before the old one is released: the old object may own `other`, or be the
        // same.
        Block* const previous = m_block;
        other.m_block->addReference();
        m_block = other.m_block;
        previous->release();
        return *this;
    }

    /// The address of the stored object pointer, which is null when this owns no object.
    [[nodiscard]] virtual T* const* getAddress() const noexcept { return &m_block->m_object; }

    [[nodiscard]] T* get() const noexcept { return m_block->m_object; }
    T* operator->() const noexcept { return get(); }
    T& operator*() const noexcept { return *get(); }
    explicit operator bool() const noexcept { return get() != nullptr; }

    void swap(SharedPtr& other) noexcept { std::swap(m_block, other.m_block); }

    /// Creates an object of a class derived from T inside the count block, with one allocation for both.
    template <class Object, class... Arguments>
    [[nodiscard]] static SharedPtr makeInPlace(Arguments&&... arguments)
    {
        return SharedPtr(
            static_cast<Block*>(new InPlaceBlock<Object>(std::forward<Arguments>(arguments)...)));
    }

private:
    struct Block
    {
        constexpr explicit Block(T* object) noexcept : m_object(object) {}
        Block(const Block&) = delete;
        Block& operator=(const Block&) = delete;
        // Virtual, so that object and block are destroyed on the heap of the module that created them.
        virtual ~Block()
        {
            if (m_object != nullptr)
                Deleter()(m_object);
        }

        void addReference() noexcept { m_count.fetch_add(1, std::memory_order_relaxed); }
        void release() noexcept
        {
            // The last owner has nobody to race with, and most objects only ever have one.
            if (m_count.load(std::memory_order_acquire) == 1 ||
                m_count.fetch_sub(1, std::memory_order_acq_rel) == 1)
                dispose();
        }
        virtual void dispose() noexcept { delete this; }

        T* m_object;
        std::atomic<unsigned> m_count{1};
    };

    template <class Object>
    struct InPlaceBlock final : Block
    {
        template <class... Arguments>
        explicit InPlaceBlock(Arguments&&... arguments)
            : Block(nullptr), m_inPlace(std::forward<Arguments>(arguments)...)
        {
            this->m_object = &m_inPlace;
        }
        ~InPlaceBlock() override { this->m_object = nullptr; } // the object is destroyed as our member

        Object m_inPlace;
    };

    struct NoObjectBlock final : Block
    {
        constexpr NoObjectBlock() noexcept : Block(nullptr) {}
        void dispose() noexcept override {} // it is not on the heap
    };
    /// Initialised before any code runs and never destroyed: pointers with static storage need it at both
    /// ends.
    union EmptyBlock
    {
        constexpr EmptyBlock() noexcept : block() {}
        ~EmptyBlock() {} // NOLINT(modernize-use-equals-default): keeps the block alive
        NoObjectBlock block;
    };
    static constinit inline EmptyBlock s_empty;

    explicit SharedPtr(Block* block) noexcept : m_block(block) {}

    static Block* emptyBlock() noexcept
    {
        s_empty.block.addReference(); // on the block that is never released
        return &s_empty.block;
    }

    static Block* makeBlock(T* object)
    {
        if (object == nullptr)
            return emptyBlock();
        auto* block = new (std::nothrow) Block(object);
        if (block == nullptr) {
            Deleter()(object);
            raiseCode(ERROR_NOT_ENOUGH_MEMORY);
        }
        return block;
    }

    Block* m_block;
};

/// Used instead of SharedPtr by families with one process-wide object. The same rules apply.
template <class T>
class SingletonPtr : public SharedPtr<T>
{
public:
    using SharedPtr<T>::SharedPtr;
};

/// Creates an object and its pointer on this module's heap with one allocation. Raises std::bad_alloc, and
/// what the constructor raises.
template <class T, class Object = T, class... Arguments>
[[nodiscard]] SharedPtr<T> makeShared(Arguments&&... arguments)
{
    return SharedPtr<T>::template makeInPlace<Object>(std::forward<Arguments>(arguments)...);
}
