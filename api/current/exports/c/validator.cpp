// The C interface: validators.

#include "exports/c/Rules.h"

using cframes::requireArguments;
using cframes::status;

cframes::Table<sysmaint_validator, Rules> validators;

Rules::Use::Use(sysmaint_validator* handle)
{
    if (handle == nullptr) {
        m_validator = makeShared<IScanValidator, ScanValidator>();
        return;
    }
    m_rules = validators().get(handle);
    const WriteLocker locker(m_rules->m_lock);
    ++m_rules->m_uses;
    m_validator = m_rules->m_validator;
}

Rules::Use::~Use()
{
    if (!m_rules)
        return;
    const WriteLocker locker(m_rules->m_lock);
    --m_rules->m_uses;
}

namespace {
/// Whether the list is that of the filters; raises 87 for a number of none.
bool isFilters(std::uint32_t list)
{
    requireArguments(list == SYSMAINT_LIST_FILTERS || list == SYSMAINT_LIST_IGNORES);
    return list == SYSMAINT_LIST_FILTERS;
}

/// The frame of a function that reads a rule.
template <class Read>
std::int32_t withRule(const char* function, sysmaint_validator* validator, std::uint32_t list,
                      std::uint32_t index, Read&& read) noexcept
{
    return status(function, [&] {
        const auto rules = validators().get(validator);
        const auto at = isFilters(list) ? &ScanValidator::filterAt : &ScanValidator::ignoreAt;
        rules->read([&](const ScanValidator& object) { read((object.*at)(index)); });
    });
}
} // namespace

std::int32_t sysmaint_validator_create(const wchar_t* filters, const wchar_t* ignores,
                                       sysmaint_validator** validator)
{
    return status(__func__, [&] {
        requireArguments(validator != nullptr);
        // As for the C++ function a missing text would drop the other one.
        const wchar_t* const none = filters == nullptr && ignores == nullptr ? nullptr : L"";
        *validator = validators().add(
            makeShared<Rules>(filters != nullptr ? filters : none, ignores != nullptr ? ignores : none));
    });
}

std::int32_t sysmaint_validator_add(sysmaint_validator* validator, std::uint32_t list, const wchar_t* pattern,
                                    std::uint32_t mode, std::uint32_t target, std::uint32_t kind)
{
    return status(__func__, [&] {
        const auto rules = validators().get(validator);
        const auto add = isFilters(list) ? &IScanValidator::addFilter : &IScanValidator::addIgnore;
        requireArguments(pattern != nullptr && mode <= SYSMAINT_MATCH_SUBSTRING &&
                         target <= SYSMAINT_TARGET_NAME && kind <= SYSMAINT_ITEMS_LEAVES);
        rules->change([&](IScanValidator& object) { (object.*add)(pattern, mode, target, kind); });
    });
}

std::int32_t sysmaint_validator_clear(sysmaint_validator* validator)
{
    return status(__func__, [&] {
        validators().get(validator)->change([](IScanValidator& object) { object.clear(); });
    });
}

std::int32_t sysmaint_validator_count(sysmaint_validator* validator, std::uint32_t list, std::uint32_t* count)
{
    return status(__func__, [&] {
        const auto rules = validators().get(validator);
        const auto get = isFilters(list) ? &IScanValidator::getFilterCount : &IScanValidator::getIgnoreCount;
        requireArguments(count != nullptr);
        rules->read([&](const IScanValidator& object) { *count = (object.*get)(); });
    });
}

std::int32_t sysmaint_validator_pattern(sysmaint_validator* validator, std::uint32_t list,
                                        std::uint32_t index, wchar_t** pattern)
{
    return withRule(__func__, validator, list, index, [&](const ScanRule& rule) {
        requireArguments(pattern != nullptr);
        *pattern = cframes::copyText(rule.getPattern());
    });
}

std::int32_t sysmaint_validator_rule(sysmaint_validator* validator, std::uint32_t list, std::uint32_t index,
                                     sysmaint_rule* rule)
{
    return withRule(__func__, validator, list, index, [&](const ScanRule& found) {
        static_cast<void>(cframes::given(rule));
        cframes::store(rule, sysmaint_rule{0, found.matchMode, found.matchTarget, found.itemKind});
    });
}

std::int32_t sysmaint_validator_dump(sysmaint_validator* validator, void** bytes, std::uint64_t* size)
{
    return status(__func__, [&] {
        validators().get(validator)->read([&](const IScanValidator& object) {
            cframes::storeDump(bytes, size, [&](auto& stream) { return object.dump(kStateNone, stream); });
        });
    });
}

std::int32_t sysmaint_validator_load(sysmaint_validator* validator, const void* bytes, std::uint64_t size)
{
    return status(__func__, [&] {
        const auto rules = validators().get(validator);
        // All of it is read once before any rule is added.
        cframes::loadWhole(bytes, size,
                           [](auto& stream) { return ScanValidator().load(kStateNone, stream); });
        MemoryInputByteStream stream(bytes, size);
        rules->change([&](IScanValidator& object) { requireSuccess(object.load(kStateNone, stream)); });
    });
}

std::int32_t sysmaint_validator_close(sysmaint_validator* validator)
{
    return status(__func__, [&] { validators().remove(validator); });
}
