// The C interface: messages.

#include "exports/c/Messages.h"

#include <iterator>

#include "win32/stateholder/include/StateCodes.h"

using cframes::requireArguments;
using cframes::status;

cframes::Table<sysmaint_message, MessageHolder> messages;

namespace {
/// The frame of a function that makes a message: `make` gets an empty pointer to the class.
template <class Make>
std::int32_t makeMessage(const char* function, std::uint32_t kind, sysmaint_message** message,
                         Make&& make) noexcept
{
    return status(function, [&] {
        requireArguments(message != nullptr);
        *message = messages().add(withMessageClass(kind, [&](auto* type) { return make(type); }));
    });
}

/// The frame of a function for messages of one class.
template <class Type, class Operation>
std::int32_t withType(const char* function, sysmaint_message* message, bool given,
                      Operation&& operation) noexcept
{
    return status(function, [&] {
        const auto holder = messages().get(message);
        auto& object = holder->template as<Type>();
        requireArguments(given);
        operation(object);
    });
}

void storeParameter(const ParameterW& parameter, const void** bytes, std::uint64_t* size)
{
    *bytes = parameter.getData();
    *size = parameter.getSize();
}
} // namespace

std::int32_t sysmaint_message_create(std::uint32_t kind, const wchar_t* topic, std::uint32_t id,
                                     sysmaint_message** message)
{
    return makeMessage(__func__, kind, message, [&](auto* type) {
        return MessageHolder::copyOf(std::remove_pointer_t<decltype(type)>(topic, id));
    });
}

std::int32_t sysmaint_message_create_numbered(std::uint32_t kind, std::uint32_t topic, std::uint32_t id,
                                              sysmaint_message** message)
{
    return makeMessage(__func__, kind, message, [&](auto* type) {
        return MessageHolder::copyOf(std::remove_pointer_t<decltype(type)>(topic, id));
    });
}

std::int32_t sysmaint_message_copy(sysmaint_message* message, sysmaint_message** copy)
{
    return status(__func__, [&] {
        const auto holder = messages().get(message);
        requireArguments(copy != nullptr);
        *copy = messages().add(
            withMessage(*holder, [](const auto& object) { return MessageHolder::copyOf(object); }));
    });
}

std::int32_t sysmaint_message_load(std::uint32_t kind, const void* bytes, std::uint64_t size,
                                   sysmaint_message** message)
{
    return makeMessage(__func__, kind, message, [&](auto* type) {
        std::remove_pointer_t<decltype(type)> loaded;
        cframes::loadWhole(bytes, size, [&](auto& stream) { return loaded.load(kStateNone, stream); });
        return MessageHolder::copyOf(loaded);
    });
}

std::int32_t sysmaint_message_dump(sysmaint_message* message, void** bytes, std::uint64_t* size)
{
    return status(__func__, [&] {
        const auto holder = messages().get(message);
        cframes::storeDump(bytes, size,
                           [&](auto& stream) { return holder->message().dump(kStateNone, stream); });
    });
}

std::int32_t sysmaint_message_get_info(sysmaint_message* message, sysmaint_message_info* info)
{
    return status(__func__, [&] {
        const auto holder = messages().get(message);
        static_cast<void>(cframes::given(info));
        const MessageW& object = holder->message();
        cframes::store(info,
                       sysmaint_message_info{0, static_cast<std::uint32_t>(holder->kind()), object.getId(),
                                             object.getTopicNumber(), object.getTopicName()});
    });
}

std::int32_t sysmaint_message_set_id(sysmaint_message* message, std::uint32_t id)
{
    return status(__func__, [&] { messages().get(message)->message().setId(id); });
}

std::int32_t sysmaint_message_set_data(sysmaint_message* message, const void* bytes, std::uint64_t size)
{
    return withType<DataMessage>(__func__, message, bytes != nullptr || size == 0,
                                 [&](DataMessage& object) { object.setData(bytes, size); });
}

std::int32_t sysmaint_message_data(sysmaint_message* message, const void** bytes, std::uint64_t* size)
{
    return withType<DataMessage>(__func__, message, bytes != nullptr && size != nullptr,
                                 [&](const DataMessage& object) {
                                     *bytes = object.getData();
                                     *size = object.getSize();
                                 });
}

std::int32_t sysmaint_message_add_element(sysmaint_message* message, const void* bytes, std::uint64_t size)
{
    return withType<ArrayMessage>(__func__, message, bytes != nullptr, [&](ArrayMessage& object) {
        object.addElement(makeShared<SerializableW, ParameterW>(size, bytes));
    });
}

std::int32_t sysmaint_message_element(sysmaint_message* message, std::uint64_t index, const void** bytes,
                                      std::uint64_t* size)
{
    return withType<ArrayMessage>(
        __func__, message, bytes != nullptr && size != nullptr, [&](const ArrayMessage& object) {
            if (index >= object.getElements().size())
                raiseCode(ERROR_NO_MORE_ITEMS);
            const auto* element = dynamic_cast<const ParameterW*>(object.getElements()[index].get());
            if (element == nullptr)
                raiseCode(ERROR_CALL_NOT_IMPLEMENTED);
            storeParameter(*element, bytes, size);
        });
}

std::int32_t sysmaint_message_set_parameter(sysmaint_message* message, const wchar_t* name, const void* bytes,
                                            std::uint64_t size)
{
    return withType<HashMessageW>(__func__, message, bytes != nullptr, [&](HashMessageW& object) {
        requireSuccess(object.setParameter(name, bytes, size));
    });
}

std::int32_t sysmaint_message_set_number(sysmaint_message* message, const wchar_t* name, std::uint32_t number)
{
    return withType<HashMessageW>(__func__, message, true, [&](HashMessageW& object) {
        requireSuccess(object.setParameter(name, number));
    });
}

std::int32_t sysmaint_message_set_text(sysmaint_message* message, const wchar_t* name, const wchar_t* text)
{
    return withType<HashMessageW>(__func__, message, text != nullptr, [&](HashMessageW& object) {
        requireSuccess(object.setParameter(name, text));
    });
}

std::int32_t sysmaint_message_parameter(sysmaint_message* message, const wchar_t* name, const void** bytes,
                                        std::uint64_t* size)
{
    return withType<HashMessageW>(__func__, message, bytes != nullptr && size != nullptr,
                                  [&](const HashMessageW& object) {
                                      const ParameterW* parameter = nullptr;
                                      requireSuccess(object.getParameter(name, parameter));
                                      storeParameter(*parameter, bytes, size);
                                  });
}

std::int32_t sysmaint_message_number(sysmaint_message* message, const wchar_t* name, std::uint32_t* number)
{
    return withType<HashMessageW>(__func__, message, number != nullptr, [&](const HashMessageW& object) {
        requireSuccess(object.getParameter(name, *number));
    });
}

std::int32_t sysmaint_message_text(sysmaint_message* message, const wchar_t* name, const wchar_t** text)
{
    return withType<HashMessageW>(__func__, message, text != nullptr, [&](const HashMessageW& object) {
        requireSuccess(object.getParameter(name, *text));
    });
}

std::int32_t sysmaint_message_parameter_at(sysmaint_message* message, std::uint64_t index,
                                           const wchar_t** name, const void** bytes, std::uint64_t* size)
{
    return withType<HashMessageW>(__func__, message, name != nullptr && bytes != nullptr && size != nullptr,
                                  [&](const HashMessageW& object) {
                                      const auto& all = object.getParameters();
                                      if (index >= all.size())
                                          raiseCode(ERROR_NO_MORE_ITEMS);
                                      const auto& [key, parameter] =
                                          *std::next(all.begin(), static_cast<std::ptrdiff_t>(index));
                                      if (!parameter)
                                          raiseCode(ERROR_NOT_FOUND);
                                      *name = key.c_str();
                                      storeParameter(*parameter, bytes, size);
                                  });
}

std::int32_t sysmaint_message_clear(sysmaint_message* message)
{
    return status(__func__, [&] {
        const auto holder = messages().get(message);
        switch (holder->kind()) {
        case MessageClass::DataMessage:
            return holder->as<DataMessage>().setData(nullptr, 0);
        case MessageClass::ArrayMessage:
            return holder->as<ArrayMessage>().clearElements();
        case MessageClass::HashMessageW:
            return holder->as<HashMessageW>().clearParameters();
        default:
            return;
        }
    });
}

std::int32_t sysmaint_message_close(sysmaint_message* message)
{
    return status(__func__, [&] { messages().remove(message); });
}
