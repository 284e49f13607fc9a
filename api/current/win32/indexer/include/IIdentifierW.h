#pragma once

/// Something that is identified by a wide text.
struct IIdentifierW
{
    virtual ~IIdentifierW() = default;
    /// The identifying text, never null. Owned by the object, valid while it lives and is not changed.
    [[nodiscard]] virtual const wchar_t* getIdentifier() const noexcept = 0;
};
