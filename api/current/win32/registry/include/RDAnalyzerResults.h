#pragma once

#include <cstdint>
#include <vector>

#include "win32/communication/include/Primitives.h"
#include "win32/stateholder/include/Serializable.h"

inline constexpr char kRDAnalyzerResultsHeader[] = "win32\\registry\\include\\RDAnalyzerResults.h";

/// How much one registry hive would shrink.
struct RDHiveResult
{
    HeapStringW mountName;     ///< the key that it is loaded as, such as "\REGISTRY\MACHINE\SOFTWARE"
    HeapStringW path;          ///< its file
    std::uint64_t oldSize = 0; ///< bytes of the copy of the live hive, which has whole clusters
    std::uint64_t newSize = 0; ///< bytes of the compacted hive
};

/// Why one registry hive could not be measured.
struct RDHiveFailure
{
    HeapStringW mountName;
    HeapStringW path;       ///< its file; as the system names it when that was not found on any drive
    std::uint32_t code = 0; ///< a Win32 code
    HeapStringW report;     ///< where and why, for a log; empty without memory for it
};

/// What an analysis of the registry hives has found, in the order of the system's list. Copies are whole.
///
/// Serialized form: the count of results (u32), and of each the mount name and path (strings), the old and
/// the new size (blobs of 8 bytes); then the count of failures (u32), and of each the mount name and path
/// (strings), the code (u32) and the report (string). The codes of load and dump are ignored.
class RDAnalyzerResults : public SerializableW
{
public:
    using Results = std::vector<RDHiveResult, ProcessHeapAllocator<RDHiveResult>>;
    using Failures = std::vector<RDHiveFailure, ProcessHeapAllocator<RDHiveFailure>>;

    [[nodiscard]] const Results& getResults() const noexcept { return m_results; }
    [[nodiscard]] const Failures& getFailures() const noexcept { return m_failures; }

    /// A null text becomes "<dump error>". Raises std::bad_alloc; nothing is added then.
    void addResult(const wchar_t* mountName, const wchar_t* path, std::uint64_t oldSize,
                   std::uint64_t newSize)
    {
        m_results.push_back({textOf(mountName), textOf(path), oldSize, newSize});
    }
    void addFailure(const wchar_t* mountName, const wchar_t* path, std::uint32_t code, const wchar_t* report)
    {
        m_failures.push_back({textOf(mountName), textOf(path), code, textOf(report)});
    }
    void clear() noexcept
    {
        m_results.clear();
        m_failures.clear();
    }

    /// Raises an Exception with 29.
    long dump(unsigned long, IOutputByteStream& stream) const override
    {
        using namespace primitives;
        placedStep(PLACE(kRDAnalyzerResultsHeader, "RDAnalyzerResults::dump", __LINE__), [&] {
            writeU32(stream, static_cast<std::uint32_t>(m_results.size()));
            for (const RDHiveResult& result : m_results) {
                writeString(stream, result.mountName.c_str());
                writeString(stream, result.path.c_str());
                writeU64Blob(stream, result.oldSize);
                writeU64Blob(stream, result.newSize);
            }
            writeU32(stream, static_cast<std::uint32_t>(m_failures.size()));
            for (const RDHiveFailure& failure : m_failures) {
                writeString(stream, failure.mountName.c_str());
                writeString(stream, failure.path.c_str());
                writeU32(stream, failure.code);
                writeString(stream, failure.report.c_str());
            }
        });
        return ERROR_SUCCESS;
    }

    /// Raises an Exception with 30 or 8; what was there before is kept then.
    long load(unsigned long, IInputByteStream& stream) override
    {
        using namespace primitives;
        placedStep(PLACE(kRDAnalyzerResultsHeader, "RDAnalyzerResults::load", __LINE__), [&] {
            Results results; // a count may lie, so that no room is made for it in advance
            for (std::uint32_t left = readU32(stream); left != 0; --left) {
                RDHiveResult result;
                result.mountName = readText<wchar_t>(stream);
                result.path = readText<wchar_t>(stream);
                result.oldSize = readU64Blob(stream);
                result.newSize = readU64Blob(stream);
                results.push_back(std::move(result));
            }
            Failures failures;
            for (std::uint32_t left = readU32(stream); left != 0; --left) {
                RDHiveFailure failure;
                failure.mountName = readText<wchar_t>(stream);
                failure.path = readText<wchar_t>(stream);
                failure.code = readU32(stream);
                failure.report = readText<wchar_t>(stream);
                failures.push_back(std::move(failure));
            }
            m_results.swap(results);
            m_failures.swap(failures);
        });
        return ERROR_SUCCESS;
    }

private:
    [[nodiscard]] static HeapStringW textOf(const wchar_t* text)
    {
        return text != nullptr ? text : primitives::missingText<wchar_t>();
    }

    Results m_results;
    Failures m_failures;
};
