#pragma once

#include <vector>

#include "core/win32/utils/objectmanager/include/SharedPtr.h"
#include "win32/communication/include/Parameter.h"

inline constexpr char kArrayMessageHeader[] = "win32\\communication\\include\\ArrayMessage.h";

/// A message with a list of serializable objects. Copies of the message share the objects.
///
/// Serialized form: the message, the element count as u32, then each element's own form. The form does not
/// record the elements' class: load creates each one with the message's factory, by default an empty
/// ParameterW. load and dump raise an Exception that names the failing step, with the step's code. Dumping an
/// element pointer without an object raises a bare 487.
class ArrayMessage : public MessageW
{
public:
    using Element = SharedPtr<SerializableW>;
    using Elements = std::vector<Element, ProcessHeapAllocator<Element>>;
    /// Creates the element at `index` of the list, ready to be loaded. A pointer without an object is refused
    /// with 487.
    using ElementFactory = Element (*)(std::uint32_t index);

    using MessageW::MessageW;

    static Element makeParameter(std::uint32_t) { return makeShared<SerializableW, ParameterW>(); }

    /// Sets the factory that load creates elements with; null restores the default, empty ParameterW objects.
    void setElementFactory(ElementFactory factory) noexcept
    {
        m_factory = factory != nullptr ? factory : &ArrayMessage::makeParameter;
    }

    /// Appends an element. Raises std::bad_alloc when memory runs out.
    void addElement(const Element& element) { m_elements.push_back(element); }
    [[nodiscard]] const Elements& getElements() const noexcept { return m_elements; }
    void clearElements() noexcept { m_elements.clear(); }

    long dump(unsigned long code, IOutputByteStream& stream) const override
    {
        using namespace primitives;
        placedStep(PLACE(kArrayMessageHeader, "ArrayMessage::dump", 422),
                   [&] { MessageW::dump(code, stream); });
        placedStep(PLACE(kArrayMessageHeader, "ArrayMessage::dump", 426),
                   [&] { writeU32(stream, static_cast<std::uint32_t>(m_elements.size())); });
        for (const Element& element : m_elements) {
            if (!element)
                raiseCode(ERROR_INVALID_ADDRESS);
            placedStep(PLACE(kArrayMessageHeader, "ArrayMessage::dump", 436),
                       [&] { requireSuccess(element->dump(code, stream)); });
        }
        return ERROR_SUCCESS;
    }

    long load(unsigned long code, IInputByteStream& stream) override
    {
        using namespace primitives;
        m_elements.clear();
        placedStep(PLACE(kArrayMessageHeader, "ArrayMessage::load", 371),
                   [&] { MessageW::load(code, stream); });
        std::uint32_t count = 0;
        placedStep(PLACE(kArrayMessageHeader, "ArrayMessage::load", 375), [&] { count = readU32(stream); });
        for (std::uint32_t index = 0; index < count; ++index) {
            placedStep(PLACE(kArrayMessageHeader, "ArrayMessage::load", 391), [&] {
                // Checked each time, so that a false count cannot create elements out of nothing.
                if (stream.getRemaining() == 0)
                    raiseCode(ERROR_READ_FAULT);
                const Element element = m_factory(index);
                if (!element)
                    raiseCode(ERROR_INVALID_ADDRESS);
                requireSuccess(element->load(code, stream));
                m_elements.push_back(element);
            });
        }
        return ERROR_SUCCESS;
    }

private:
    Elements m_elements;
    ElementFactory m_factory = &ArrayMessage::makeParameter;
};
