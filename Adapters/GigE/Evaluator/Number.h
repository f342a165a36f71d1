#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace KyGigE
{

/// A value of a node or a formula: a whole number, exact in 64 bits, or a floating-point one.
class Number
{
public:
    Number() = default;
    static Number Integer(int64_t aValue) { return {false, aValue, 0}; }
    static Number Float(double aValue) { return {true, 0, aValue}; }

    bool IsFloat() const { return mIsFloat; }
    bool IsZero() const { return mIsFloat ? mFloat == 0 : mInteger == 0; }
    double AsFloat() const { return mIsFloat ? mFloat : static_cast<double>(mInteger); }
    /// Nothing when no whole number of 64 bits is that large, or it is no number. Digits after the point are
    /// cut off.
    std::optional<int64_t> Truncated() const;
    /// The nearest whole number, likewise.
    std::optional<int64_t> Rounded() const;

private:
    Number(bool aIsFloat, int64_t aInteger, double aFloat)
        : mIsFloat(aIsFloat), mInteger(aInteger), mFloat(aFloat)
    {
    }

    bool mIsFloat = false;
    int64_t mInteger = 0;
    double mFloat = 0;
};

// Whatever the user's language has, texts have decimal points.

/// A decimal number, or 0x and up to 16 hexadecimal digits; nothing else. All 64 bits of a hexadecimal one
/// count, so 0xFFFFFFFFFFFFFFFF is -1.
std::optional<int64_t> ParseInteger(std::string_view aText);
/// A decimal number with or without point and exponent; infinities are none.
std::optional<double> ParseFloat(std::string_view aText);
/// "true", "false" in any case, "1", "0".
std::optional<bool> ParseBoolean(std::string_view aText);

/// The shortest text that ParseFloat() makes the same number of.
std::string FloatText(double aValue);

/// How a whole number is shown.
enum class Representation
{
    Decimal,
    Hexadecimal, ///< 0x1F
    Ipv4,        ///< 192.168.0.1
    Mac          ///< 00:1B:63:84:45:E6
};

std::string IntegerText(int64_t aValue, Representation aRepresentation);
/// What IntegerText() writes; and every text that ParseInteger() knows, whatever the representation.
std::optional<int64_t> ParseInteger(std::string_view aText, Representation aRepresentation);

} // namespace KyGigE
