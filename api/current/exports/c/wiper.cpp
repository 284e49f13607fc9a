// The C interface: wiping.

#include "core/win32/utils/wiper/include/Wiper.h"

#include "core/win32/utils/wiper/include/FileTable.h"
#include "exports/c/Rules.h"

using cframes::given;
using cframes::requireArguments;
using cframes::status;

namespace {
/// A wiper of the C interface, which serves one call at a time.
struct WiperObject
{
    Wiper wiper;
    std::atomic<bool> isBusy{false};
};
cframes::Table<sysmaint_wiper, WiperObject> wipers;

/// Holds the wiper for one call. Raises 6 and 170.
class WiperCall
{
public:
    explicit WiperCall(sysmaint_wiper* handle) : m_object(wipers().get(handle))
    {
        if (m_object->isBusy.exchange(true))
            raiseCode(ERROR_BUSY);
    }
    WiperCall(const WiperCall&) = delete;
    WiperCall& operator=(const WiperCall&) = delete;
    ~WiperCall() { m_object->isBusy = false; }

    Wiper* operator->() const noexcept { return &m_object->wiper; }

private:
    SharedPtr<WiperObject> m_object;
};

/// The progress of a call with the caller's callback.
struct ProgressCall : WipeProgress
{
    cframes::Callback<sysmaint_wipe_callback> callback;

    /// What the wiper calls. The caller's refusal ends the call as the event does: the file goes on no list.
    static void tell(WipeProgress* progress)
    {
        const sysmaint_wipe_progress told{sizeof told, 0, progress->done, progress->total};
        if (!static_cast<ProgressCall*>(progress)->callback.call(&told))
            raiseCode(ERROR_CANCELLED);
    }
    [[nodiscard]] WipeCallback function() const noexcept { return callback ? &tell : nullptr; }
};

sysmaint_wipe_options givenOptions(const sysmaint_wipe_options* options)
{
    const sysmaint_wipe_options copy = given(options);
    requireArguments(copy.reserved == 0);
    return copy;
}

DirectoryStack givenEntries(const sysmaint_wipe_entry* entries, std::uint64_t count)
{
    requireArguments(entries != nullptr || count == 0);
    DirectoryStack stack;
    for (std::uint64_t index = 0; index < count; ++index) {
        const sysmaint_wipe_entry entry = given(entries + index);
        const bool isFolder = entry.is_folder == 1;
        requireArguments(entry.is_folder <= 1 && entry.path != nullptr &&
                         (isFolder || entry.folder != nullptr));
        stack.push_back({entry.path, isFolder ? L"" : entry.folder, isFolder, false});
    }
    return stack;
}
} // namespace

std::int32_t sysmaint_wiper_create(sysmaint_wiper** wiper)
{
    return status(__func__, [&] {
        requireArguments(wiper != nullptr);
        *wiper = wipers().add(makeShared<WiperObject>());
    });
}

std::int32_t sysmaint_wiper_wipe(sysmaint_wiper* wiper, std::uint32_t kind, const wchar_t* path,
                                 const sysmaint_wipe_options* options, sysmaint_validator* validator,
                                 void* cancel_event, sysmaint_wipe_callback callback, void* context)
{
    return status(__func__, [&]() -> long {
        cframes::requireNoPseudoHandle(cancel_event);
        const WiperCall object(wiper);
        const sysmaint_wipe_options how = givenOptions(options);
        requireArguments(kind == SYSMAINT_WIPE_FILE || kind == SYSMAINT_WIPE_FREE_SPACE ||
                         kind == SYSMAINT_WIPE_VOLUME);
        const Rules::Use rules(validator);
        ProgressCall progress{{0, how.total}, {callback, context}};
        return progress.callback.codeOf(cframes::codeOfPolling(cancel_event, [&] {
            return object->Wipe(progress.function(), &progress, kind, path, nullptr, rules.get().get(),
                                how.method, how.passes, cancel_event);
        }));
    });
}

std::int32_t sysmaint_wiper_wipe_entries(sysmaint_wiper* wiper, const wchar_t* root,
                                         const sysmaint_wipe_entry* entries, std::uint64_t count,
                                         const sysmaint_wipe_options* options, void* cancel_event,
                                         sysmaint_wipe_callback callback, void* context, std::uint64_t* left)
{
    return status(__func__, [&]() -> long {
        cframes::requireNoPseudoHandle(cancel_event);
        const WiperCall object(wiper);
        const sysmaint_wipe_options how = givenOptions(options);
        requireArguments(root != nullptr);
        DirectoryStack stack = givenEntries(entries, count);
        ProgressCall progress{{0, how.total}, {callback, context}};
        const long code = cframes::codeOfPolling(cancel_event, [&] {
            return object->Wipe(progress.function(), &progress, kWipeDirectoryStack, root, &stack, nullptr,
                                how.method, how.passes, cancel_event);
        });
        if (left != nullptr && (code != ERROR_NOT_ENOUGH_MEMORY || stack.size() != count))
            *left = stack.size();
        return progress.callback.codeOf(code);
    });
}

std::int32_t sysmaint_wiper_needs_restart(sysmaint_wiper* wiper, std::int32_t* needs)
{
    return status(__func__, [&] {
        const auto object = wipers().get(wiper);
        requireArguments(needs != nullptr);
        *needs = object->wiper.getNeedsReboot() != 0 ? 1 : 0;
    });
}

std::int32_t sysmaint_wiper_clear_needs_restart(sysmaint_wiper* wiper)
{
    return status(__func__, [&] { wipers().get(wiper)->wiper.setNeedsReboot(0); });
}

std::int32_t sysmaint_wiper_close(sysmaint_wiper* wiper)
{
    return status(__func__, [&] { wipers().remove(wiper); });
}

std::int32_t sysmaint_wipe_file_table(const wchar_t* volume, void* cancel_event,
                                      sysmaint_wipe_callback callback, void* context)
{
    return status(__func__, [&]() -> long {
        cframes::requireNoPseudoHandle(cancel_event);
        ProgressCall progress{{}, {callback, context}};
        return progress.callback.codeOf(cframes::codeOfPolling(cancel_event, [&] {
            return filetable::wipe(volume, progress.function(), &progress, cancel_event);
        }));
    });
}
