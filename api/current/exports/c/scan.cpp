// The C interface: scans.

#include <variant>

#include "core/win32/utils/ftp/include/FtpScanEngine.h"
#include "core/win32/utils/scanengine/include/FileScanEngine.h"
#include "core/win32/utils/scanengine/include/RegistryScanEngine.h"
#include "exports/c/Finder.h"
#include "exports/c/Items.h"
#include "exports/c/Rules.h"

using cframes::requireArguments;
using cframes::status;

namespace {
/// A scan of the C interface: an engine of its own, which nobody else finds by its name. So the handler can
/// live for one run alone.
class Scan
{
public:
    template <class Engine>
    explicit Scan(std::in_place_type_t<Engine> kind)
        : m_engine(kind, (L"sysmaint.c*" + std::to_wstring(cframes::nextSerial())).c_str())
    {
    }

    /// The engine, to add a root of its kind. Raises 120 when it has another.
    template <class Engine>
    Engine& engineOf()
    {
        if (auto* engine = std::get_if<Engine>(&m_engine))
            return *engine;
        raiseCode(ERROR_CALL_NOT_IMPLEMENTED);
    }

    void clear()
    {
        std::visit([](auto& engine) { engine.clear(); }, m_engine);
    }

    /// Raises 170 while it runs already.
    long run(HANDLE cancelEvent, const SharedPtr<IScanValidator>& validator, const ScanOptions& options,
             INotifyHandler& handler)
    {
        const Turn turn(*this);
        return std::visit(
            [&](auto& engine) {
                for (const std::uint32_t key : {kLeafFound, kContainerFound, kListingFailed})
                    engine.registerHandler(handler, key, 0, 0);
                return engine.scan(cancelEvent, validator, options);
            },
            m_engine);
    }

private:
    class Turn
    {
    public:
        explicit Turn(Scan& scan) : m_scan(scan)
        {
            if (scan.m_isRunning.exchange(true))
                raiseCode(ERROR_BUSY);
        }
        Turn(const Turn&) = delete;
        Turn& operator=(const Turn&) = delete;
        ~Turn()
        {
            std::visit([](auto& engine) { engine.clearNotifyHandlers(); }, m_scan.m_engine);
            m_scan.m_isRunning = false;
        }

    private:
        Scan& m_scan;
    };

    std::variant<FileScanEngine, RegistryScanEngine, FtpScanEngine> m_engine;
    std::atomic<bool> m_isRunning{false};
};
cframes::Table<sysmaint_scan, Scan> scans;

SharedPtr<Scan> makeScan(std::uint32_t kind)
{
    switch (kind) {
    case SYSMAINT_SCAN_FOLDERS:
        return makeShared<Scan>(std::in_place_type<FileScanEngine>);
    case SYSMAINT_SCAN_REGISTRY:
        return makeShared<Scan>(std::in_place_type<RegistryScanEngine>);
    case SYSMAINT_SCAN_FTP:
        return makeShared<Scan>(std::in_place_type<FtpScanEngine>);
    default:
        raiseCode(ERROR_INVALID_PARAMETER);
    }
}

ScanOptions givenOptions(const sysmaint_scan_options* options)
{
    constexpr std::uint32_t kDeepest = 0xFFFF;
    const sysmaint_scan_options copy = cframes::givenOrZero(options);
    requireArguments(copy.depth <= kDeepest);
    ScanOptions given;
    given.depthGiven = 1;
    given.depth = static_cast<std::uint16_t>(copy.depth != 0 ? copy.depth : kDeepest);
    return given;
}
} // namespace

std::int32_t sysmaint_scan_create(std::uint32_t kind, sysmaint_scan** scan)
{
    return status(__func__, [&] {
        requireArguments(scan != nullptr);
        *scan = scans().add(makeScan(kind));
    });
}

std::int32_t sysmaint_scan_add_folder(sysmaint_scan* scan, const wchar_t* path, std::int32_t expand)
{
    return status(__func__, [&] { scans().get(scan)->engineOf<FileScanEngine>().addPath(path, expand); });
}

std::int32_t sysmaint_scan_add_key(sysmaint_scan* scan, void* root, const wchar_t* key, std::uint32_t options)
{
    return status(__func__, [&] {
        scans().get(scan)->engineOf<RegistryScanEngine>().addPath(static_cast<HKEY>(root), key,
                                                                  givenRegistryOptions(options));
    });
}

std::int32_t sysmaint_scan_add_ftp_folder(sysmaint_scan* scan, const sysmaint_ftp_account* account,
                                          const wchar_t* path)
{
    return status(__func__, [&] {
        const auto object = scans().get(scan);
        auto& engine = object->engineOf<FtpScanEngine>();
        const sysmaint_ftp_account copy = givenAccount(account);
        constexpr std::uint32_t kUsualTimeout = 30000;
        engine.setTimeout(copy.timeout != 0 ? copy.timeout : kUsualTimeout);
        engine.addPath(copy.server, path, static_cast<unsigned short>(copy.port), copy.user, copy.password);
    });
}

std::int32_t sysmaint_scan_clear(sysmaint_scan* scan)
{
    return status(__func__, [&] { scans().get(scan)->clear(); });
}

std::int32_t sysmaint_scan_run(sysmaint_scan* scan, const sysmaint_scan_options* options,
                               sysmaint_validator* validator, void* cancel_event,
                               sysmaint_scan_callback callback, void* context)
{
    return status(__func__, [&]() -> long {
        cframes::requireNoPseudoHandle(cancel_event);
        const auto object = scans().get(scan);
        const ScanOptions how = givenOptions(options);
        requireArguments(callback != nullptr);
        const Rules::Use rules(validator);
        Finder finder(callback, context);
        return finder.codeOf(cframes::codeOfPolling(
            cancel_event, [&] { return object->run(cancel_event, rules.get(), how, finder); }));
    });
}

std::int32_t sysmaint_scan_close(sysmaint_scan* scan)
{
    return status(__func__, [&] { scans().remove(scan); });
}
