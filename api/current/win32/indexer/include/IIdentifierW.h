#pragma once

/// Something identified by a wide text.
struct IIdentifierW
{
    virtual ~IIdentifierW() = default;
    /// The identifying text, never null. Owned by the object; valid until the object changes or is destroyed.
    [[nodiscard]] virtual const wchar_t* getIdentifier() const noexcept = 0;
};
