#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

namespace KySerialTool
{

/// The key that leaves an interactive terminal.
class EscapeKey
{
public:
    /// Ctrl-].
    EscapeKey() = default;

    /// "^]" or "Ctrl-]" (any of @ A to Z [ \ ] ^ _, small letters too), "0x1d" (0x00 to 0xff), or "none".
    static std::optional<EscapeKey> Parse(const std::string& aText);

    /// Where the key is among these bytes; aSize when it is not.
    size_t FindIn(const uint8_t* aData, size_t aSize) const;

    /// "Ctrl-]", "0x80"; "none" when no key leaves.
    std::string Text() const;

private:
    std::optional<uint8_t> mByte = 0x1D;
};

} // namespace KySerialTool
