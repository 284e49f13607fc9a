// The C interface: validators.

#include "core/win32/utils/scanengine/include/ScanValidator.h"

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
} // namespace

std::int32_t sysmaint_validator_create(const wchar_t* filters, const wchar_t* ignores,
                                       sysmaint_validator** validator)
{
    return status(__func__, [&] {
        requireArguments(validator != nullptr);
        // As for the C++ function a missing text would drop the other one.
        const wchar_t* const none = filters == nullptr && ignores == nullptr ? nullptr : L"";
        *validator = validators().add(makeShared<Rules>(makeShared<IScanValidator, ScanValidator>(
            filters != nullptr ? filters : none, ignores != nullptr ? ignores : none)));
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
    return status(__func__, [&] {
        const auto rules = validators().get(validator);
        const auto get = isFilters(list) ? &IScanValidator::getFilter : &IScanValidator::getIgnore;
        requireArguments(pattern != nullptr);
        rules->read(
            [&](const IScanValidator& object) { *pattern = cframes::copyText((object.*get)(index)); });
    });
}

std::int32_t sysmaint_validator_close(sysmaint_validator* validator)
{
    return status(__func__, [&] { validators().remove(validator); });
}
