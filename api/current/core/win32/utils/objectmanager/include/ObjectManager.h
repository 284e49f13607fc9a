#pragma once

#include <algorithm>
#include <concepts>
#include <cstdint>
#include <map>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "core/win32/utils/objectmanager/include/Boundary.h"
#include "core/win32/utils/objectmanager/include/MutexLock.h"
#include "win32/communication/include/IMessageHandler.h"
#include "win32/indexer/include/CachedIdentifierW.h"

inline constexpr char kObjectManagerHeader[] = "core\\win32\\utils\\objectmanager\\include\\ObjectManager.h";

/// The table of one object family: named objects behind small handles, shared by all threads.
///
/// A handle is the 1-based slot number as a pointer; 0 is never valid, and the invalid handle has all bits
/// set. Freed numbers are reused, the one freed longest ago first. An object stays alive while its entry is
/// open or any operation holds a copy of its pointer; its destructor runs outside the table's lock.
///
/// `ObjectPtr` is SharedPtr<T> or SingletonPtr<T>. `T::kClassName`, a narrow text, names the class in place
/// texts. Classes derived from SerializableW answer load and dump requests; all others refuse them with 120.
template <class ObjectPtr>
class ObjectManager : public IMessageHandler
{
public:
    using Pointer = ObjectPtr;
    using Object = std::remove_pointer_t<decltype(std::declval<ObjectPtr>().get())>;

    /// Message ids of the requests.
    static constexpr std::uint32_t kDumpRequest = 0;
    static constexpr std::uint32_t kLoadRequest = 1;

    /// Registers `object` under `name`. Returns the new handle and sets the last error to 0. On failure
    /// returns the invalid handle with the last error 87 (null name), 183 (the name is taken: its entry has
    /// then been opened once more), 487 (no object) or 8.
    void* registerObject(const wchar_t* name, const ObjectPtr& object) noexcept
    {
        return boundary::handleFrame([&]() -> void* {
            if (name == nullptr)
                raiseCode(ERROR_INVALID_PARAMETER);
            const Locker locker(m_tableLock);
            return add(name, object);
        });
    }

    /// Registers several objects under one lock, in order; `nameOf` returns each one's name, `added` receives
    /// its handle. Raises the code of the first object that fails, as registerObject would set it, as a bare
    /// long; those before it stay.
    template <class Objects, class NameOf, class Added>
    void registerObjects(const Objects& objects, NameOf&& nameOf, Added&& added)
    {
        const Locker locker(m_tableLock);
        for (const ObjectPtr& object : objects)
            added(add(nameOf(object).c_str(), object));
    }

    /// Opens the entry with that name once more and returns its handle. On failure returns the invalid handle
    /// with the last error 87 (null name), 1168 (no such name), 487 (no object) or 8.
    void* lookup(const wchar_t* name) noexcept
    {
        return boundary::handleFrame([&]() -> void* {
            if (name == nullptr)
                raiseCode(ERROR_INVALID_PARAMETER);
            const Locker locker(m_tableLock);
            void* handle = findAndOpen(name);
            if (handle == nullptr)
                raiseCode(ERROR_NOT_FOUND);
            return handle;
        });
    }

    /// Opens the entry behind `handle` once more, under the same handle. Returns 0, 6 or 487, as get does.
    long openAgain(void* handle) noexcept
    {
        return boundary::statusFrame([&]() -> long {
            const Locker locker(m_tableLock);
            ++entryOf(handle).openCount;
            return ERROR_SUCCESS;
        });
    }

    /// Opens the entry with that name, or registers the object that `make` returns. Only one thread creates
    /// an object at a time, so two threads that create the same name get one object. Raises what `make`
    /// raises, std::bad_alloc, or the code of the failed step as a bare long.
    template <class Make>
    void* openOrCreate(const wchar_t* name, Make&& make)
    {
        void* handle = lookup(name);
        if (handle != INVALID_HANDLE_VALUE)
            return handle;
        if (const DWORD code = GetLastError(); code != ERROR_NOT_FOUND)
            raiseCode(code);

        const Locker creating(m_creationLock);
        handle = lookup(name);
        if (handle != INVALID_HANDLE_VALUE)
            return handle;
        const ObjectPtr object = make(); // if not registered, destroyed after unlocking
        const Locker locker(m_tableLock);
        return add(name, object);
    }

    /// Copies the pointer of the object behind `handle`. Returns 0, 6 (null, out of range or closed handle)
    /// or 487 (the entry holds no object).
    long get(void* handle, ObjectPtr& object) noexcept
    {
        return boundary::statusFrame([&]() -> long {
            ObjectPtr found;
            {
                const Locker locker(m_tableLock);
                found = entryOf(handle).object;
            }
            object = found; // may destroy what `object` held, hence outside the lock
            return ERROR_SUCCESS;
        });
    }

    /// The same for the entry of a name, without opening it. Returns 0, 87 (null name), 6 (no such name) or
    /// 487.
    long getNamed(const wchar_t* name, ObjectPtr& object) noexcept
    {
        return boundary::statusFrame([&]() -> long {
            ObjectPtr found;
            {
                const Locker locker(m_tableLock);
                found = entryOf(handleOf(name)).object;
            }
            object = found;
            return ERROR_SUCCESS;
        });
    }

    /// Closes one opening of the entry; the last one removes it. Returns nonzero, or zero for a handle that
    /// get refuses, with the last error unchanged.
    int close(void* handle) noexcept
    {
        return close(handle, [](Object&) {});
    }
    /// The same; `removed` is called with the object when its entry was removed, while other threads may
    /// still be using it. It must not raise.
    template <class Removed>
    int close(void* handle, Removed&& removed) noexcept
    {
        return closeEntry([handle] { return handle; }, std::forward<Removed>(removed));
    }
    /// The same for the entry of a name, which is not null.
    template <class Removed>
    int closeNamed(const wchar_t* name, Removed&& removed) noexcept
    {
        return closeEntry([this, name] { return handleOf(name); }, std::forward<Removed>(removed));
    }

    /// get and close in one step for several handles under one lock. Calls `taken` in order with each
    /// handle's code, as get returns it, and its object. An entry whose code is not 0 stays as it is. `taken`
    /// must not raise.
    template <class Handles, class Taken>
    void takeObjects(const Handles& handles, Taken&& taken)
    {
        std::vector<SharedPtr<Reference>> removed(handles.size()); // released after unlocking
        const Locker locker(m_tableLock);
        const ObjectPtr none;
        ObjectPtr object;
        std::size_t index = 0;
        for (void* handle : handles) {
            const long code = boundary::statusFrame([&]() -> long {
                object = entryOf(handle).object;
                release(handle, removed[index++]);
                return ERROR_SUCCESS;
            });
            if (code != ERROR_SUCCESS)
                object = none;
            taken(code, object);
        }
    }

    /// The name that the entry was registered under, valid while the entry is open. Returns 0, 87 (null
    /// `name`), 6 or 487.
    long getName(void* handle, const wchar_t** name) noexcept
    {
        return boundary::statusFrame([&]() -> long {
            if (name == nullptr)
                return ERROR_INVALID_PARAMETER;
            const Locker locker(m_tableLock);
            *name = entryOf(handle).name.getIdentifier();
            return ERROR_SUCCESS;
        });
    }

    /// Answers a load or dump request for one object, found by name. A load (id 1) takes "ObjectName",
    /// "LoadCode" and "ObjectData" and replies "Status". A dump (id 0) takes "ObjectName", "DumpCode" and the
    /// caller's last copy in "ObjectData"; it replies "Dirty", the new "ObjectData" when that is 1, and
    /// "Status". Raises 87 for another id and for a mistyped parameter, 1168 for a missing parameter or an
    /// unknown name, 120 for a class without load and dump, and the object's own code.
    void onMessage(const HashMessageW& request, HashMessageW& reply, void*) override
    {
        switch (request.getId()) {
        case kDumpRequest:
            return dumpObject(request, reply);
        case kLoadRequest:
            return loadObject(request, reply);
        default:
            refuse();
        }
    }
    // A message of another form is not a request: 87, without a failed assertion.
    void onMessage(const MessageW&, MessageW&, void*) override { refuse(); }
    void onMessage(const MessageW&, MessageW&, std::uint32_t, void*) override { refuse(); }
    void onMessage(const DataMessage&, DataMessage&, void*) override { refuse(); }
    void onMessage(const DataMessage&, DataMessage&, std::uint32_t, void*) override { refuse(); }
    void onMessage(const ArrayMessage&, ArrayMessage&, void*) override { refuse(); }
    void onMessage(const ArrayMessage&, ArrayMessage&, std::uint32_t, void*) override { refuse(); }
    void onMessage(const HashMessageW&, HashMessageW&, std::uint32_t, void*) override { refuse(); }

    /// Whether the number was given out as a handle before and its entry has been closed since.
    [[nodiscard]] bool isClosed(void* handle)
    {
        const Locker locker(m_tableLock);
        return handle != nullptr && number(handle) <= m_slots.size() && !slotOf(number(handle)).entry;
    }

    /// How many entries are currently open.
    [[nodiscard]] std::size_t getCount()
    {
        const Locker locker(m_tableLock);
        return m_names.size();
    }

private:
    struct Reference
    {
        std::uint32_t openCount; // guarded by the table's lock
        ObjectPtr object;
        CachedIdentifierW name;
    };

    /// A freed slot holds the number to be reused after it, so that freeing a slot needs no memory.
    struct Slot
    {
        SharedPtr<Reference> entry{};
        std::uintptr_t nextFreed = 0; // 0: none
    };

    // Orders the index so that a plain text can be looked up without copying it.
    struct NameOrder
    {
        using is_transparent = void;
        static std::wstring_view view(const CachedIdentifierW& name) noexcept { return name.view(); }
        static std::wstring_view view(std::wstring_view name) noexcept { return name; }
        template <class Left, class Right>
        bool operator()(const Left& left, const Right& right) const noexcept
        {
            return view(left) < view(right);
        }
    };

    /// Closes the opening that a request's lookup took.
    class TemporaryOpening
    {
    public:
        TemporaryOpening(ObjectManager& table, const wchar_t* name)
            : m_table(table), m_handle(table.lookup(name))
        {
            if (m_handle == INVALID_HANDLE_VALUE)
                raiseLastError();
        }
        TemporaryOpening(const TemporaryOpening&) = delete;
        TemporaryOpening& operator=(const TemporaryOpening&) = delete;
        ~TemporaryOpening() { m_table.close(m_handle); }

        [[nodiscard]] ObjectPtr getObject() const
        {
            ObjectPtr object;
            requireSuccess(m_table.get(m_handle, object));
            return object;
        }

    private:
        ObjectManager& m_table;
        void* m_handle;
    };

    [[noreturn]] static void refuse() { raiseCode(ERROR_INVALID_PARAMETER); }

    static std::uintptr_t number(void* handle) noexcept { return reinterpret_cast<std::uintptr_t>(handle); }

    Slot& slotOf(std::uintptr_t slot) { return m_slots[slot - 1]; }

    Reference& entryOf(void* handle)
    {
        if (handle == nullptr || number(handle) > m_slots.size() || !slotOf(number(handle)).entry)
            raiseCode(ERROR_INVALID_HANDLE);
        Reference& entry = *slotOf(number(handle)).entry;
        if (!entry.object)
            raiseCode(ERROR_INVALID_ADDRESS);
        return entry;
    }

    template <class HandleOf, class Removed>
    int closeEntry(HandleOf&& handleOf, Removed&& removed) noexcept
    {
        const InsideLibrary inside;
        const DWORD lastError = GetLastError();
        try {
            SharedPtr<Reference> entry; // let go of after the lock
            {
                const Locker locker(m_tableLock);
                release(handleOf(), entry);
            }
            if (entry)
                removed(*entry->object);
            return 1;
        } catch (...) {
            SetLastError(lastError);
            return 0;
        }
    }

    // The steps below run under the table's lock.

    /// The handle of the entry of that name; null when there is none. Raises a bare 87.
    void* handleOf(const wchar_t* name)
    {
        if (name == nullptr)
            raiseCode(ERROR_INVALID_PARAMETER);
        const auto found = m_names.find(std::wstring_view(name));
        return found == m_names.end() ? nullptr : reinterpret_cast<void*>(found->second);
    }

    void* add(const wchar_t* name, const ObjectPtr& object)
    {
        if (findAndOpen(name) != nullptr)
            raiseCode(ERROR_ALREADY_EXISTS);
        // NOLINTNEXTLINE(bugprone-unhandled-exception-at-new): the frame turns it into 8
        const SharedPtr<Reference> entry(new Reference{1, object, CachedIdentifierW(name)});
        if (!entry->object)
            raiseCode(ERROR_INVALID_ADDRESS);
        SetLastError(ERROR_SUCCESS);
        return insert(entry);
    }

    void release(void* handle, SharedPtr<Reference>& removed)
    {
        Reference& entry = entryOf(handle);
        if (entry.openCount > 1) {
            --entry.openCount;
            return;
        }
        m_names.erase(entry.name);
        removed.swap(slotOf(number(handle)).entry);
        (m_firstFreed == 0 ? m_firstFreed : slotOf(m_lastFreed).nextFreed) = number(handle);
        m_lastFreed = number(handle);
    }

    void* findAndOpen(const wchar_t* name)
    {
        void* handle = handleOf(name);
        if (handle != nullptr)
            ++entryOf(handle).openCount;
        return handle;
    }

    // Afterwards either everything is in place or nothing has changed.
    void* insert(const SharedPtr<Reference>& entry)
    {
        const bool reuse = m_firstFreed != 0;
        const std::uintptr_t slot = reuse ? m_firstFreed : m_slots.size() + 1;
        if (!reuse && m_slots.size() == m_slots.capacity())
            m_slots.reserve(std::max<std::size_t>(16, m_slots.size() * 2));
        m_names.emplace(entry->name, slot);
        if (reuse)
            m_firstFreed = std::exchange(slotOf(slot).nextFreed, 0);
        else
            m_slots.emplace_back(); // has room: cannot fail
        slotOf(slot).entry = entry;
        return reinterpret_cast<void*>(slot);
    }

    static std::string functionPlace(const char* line)
    {
        const std::string className = Object::kClassName;
        return std::string("File: api\\current\\") + kObjectManagerHeader +
               "\nFunction: ObjectManager<SharedPtr<" + className + ",Delete<" + className +
               "> > >::onMessage\nLine: " + line;
    }

    static const ParameterW& dataOf(const HashMessageW& request)
    {
        const ParameterW* data = nullptr;
        requireSuccess(request.getParameter(L"ObjectData", data));
        return *data;
    }

    struct Request
    {
        Request(const HashMessageW& message, const wchar_t* codeName)
        {
            requireSuccess(message.getParameter(L"ObjectName", name));
            requireSuccess(message.getParameter(codeName, code));
            requireSuccess(message.getParameter(L"ObjectData", data));
        }
        const wchar_t* name = nullptr;
        std::uint32_t code = 0;
        const ParameterW* data = nullptr;
    };

    void loadObject(const HashMessageW& message, HashMessageW& reply)
    {
        const Request request(message, L"LoadCode");
        const TemporaryOpening opening(*this, request.name);
        MemoryInputByteStream stream(request.data->getData(),
                                     static_cast<std::size_t>(request.data->getSize()));
        run(
            "460", [&](Object& object) { return loadState(object, request.code, stream); },
            opening.getObject());
        requireSuccess(reply.setParameter(L"Status", std::uint32_t{ERROR_SUCCESS}));
    }

    void dumpObject(const HashMessageW& message, HashMessageW& reply)
    {
        const Request request(message, L"DumpCode");
        const TemporaryOpening opening(*this, request.name);
        MemoryOutputByteStream stream;
        run(
            "391", [&](Object& object) { return dumpState(object, request.code, stream); },
            opening.getObject());
        const bool dirty = request.data->getSize() != stream.getSize() ||
                           (stream.getSize() != 0 &&
                            std::memcmp(request.data->getData(), stream.getData(), stream.getSize()) != 0);
        requireSuccess(reply.setParameter(L"Dirty", std::uint32_t{dirty ? 1U : 0U}));
        if (dirty)
            requireSuccess(reply.setParameter(
                L"ObjectData", stream.getSize() != 0 ? static_cast<const void*>(stream.getData()) : L"",
                stream.getSize()));
        requireSuccess(reply.setParameter(L"Status", std::uint32_t{ERROR_SUCCESS}));
    }

    // Object methods run outside the table's lock, on the caller's thread.
    template <class Operation>
    static void run(const char* line, Operation&& operation, const ObjectPtr& object)
    {
        long code;
        try {
            code = operation(*object);
        } catch (...) {
            code = boundary::codeOfCurrentException();
        }
        if (code != ERROR_SUCCESS)
            throw Exception(functionPlace(line).c_str(), static_cast<unsigned long>(code));
    }

    static long loadState(Object& object, unsigned long code, IInputByteStream& stream)
    {
        if constexpr (std::derived_from<Object, SerializableW>)
            return object.load(code, stream);
        else
            return ERROR_CALL_NOT_IMPLEMENTED;
    }

    static long dumpState(Object& object, unsigned long code, IOutputByteStream& stream)
    {
        if constexpr (std::derived_from<Object, SerializableW>)
            return object.dump(code, stream);
        else
            return ERROR_CALL_NOT_IMPLEMENTED;
    }

    MutexLock m_tableLock;
    MutexLock m_creationLock;
    std::vector<Slot> m_slots; // indexed by handle minus one; never shrinks
    std::map<CachedIdentifierW, std::uintptr_t, NameOrder> m_names;
    std::uintptr_t m_firstFreed = 0; // reused first, then its next; 0: none
    std::uintptr_t m_lastFreed = 0;  // meaningless while there is no first
};
