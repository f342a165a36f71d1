#pragma once

#include <cstdint>
#include <cstring>
#include <memory>
#include <new>

/// An immutable text of bytes, ended by NUL, without knowledge of an encoding.
///
/// A value: copies are independent of each other. The class is complete in its header, and every text carries
/// the function that frees it, so that a text made inside a DLL may be destroyed outside it whatever run-time
/// library either side uses.
///
/// Nothing throws. When there is no memory for a text, the object is empty.
/// Threads: different objects may be used by different threads; one object by one thread, or by several that
/// only read it.
class KyString
{
public:
    /// The empty text.
    KyString() noexcept = default;

    /// A copy of aText.
    /// \param aText  Text ended by NUL, of 4 GiB - 2 bytes at most; null and longer ones give the empty text.
    ///               Not kept.
    KyString(const char* aText) noexcept // NOLINT(google-explicit-constructor): feature names are literals
    {
        Assign(aText, aText != nullptr ? std::strlen(aText) : 0);
    }

    /// A copy of the first aLength bytes of aText, which need not be ended by NUL.
    /// \param aText    May be null when aLength is 0.
    /// \param aLength  Bytes to take; 4 GiB - 2 at most. More gives the empty text.
    KyString(const char* aText, size_t aLength) noexcept { Assign(aText, aLength); }

    KyString(const KyString& aOther) noexcept { Assign(aOther.mText.get(), aOther.mLength); }

    KyString(KyString&& aOther) noexcept : mText(std::move(aOther.mText)), mLength(aOther.mLength)
    {
        aOther.mLength = 0;
    }

    ~KyString() = default;

    KyString& operator=(const KyString& aOther) noexcept
    {
        if (this != &aOther)
        {
            Assign(aOther.mText.get(), aOther.mLength);
        }
        return *this;
    }

    KyString& operator=(KyString&& aOther) noexcept
    {
        if (this != &aOther)
        {
            mText = std::move(aOther.mText);
            mLength = aOther.mLength;
            aOther.mLength = 0;
        }
        return *this;
    }

    /// The text, ended by NUL; never null. Valid until the object is assigned to or destroyed.
    const char* GetAscii() const noexcept { return mText != nullptr ? mText.get() : ""; }

    /// Number of bytes before the NUL.
    uint32_t GetLength() const noexcept { return mLength; }

    /// Byte by byte; case counts.
    bool operator==(const KyString& aOther) const noexcept
    {
        return mLength == aOther.mLength && std::memcmp(GetAscii(), aOther.GetAscii(), mLength) == 0;
    }
    bool operator!=(const KyString& aOther) const noexcept { return !(*this == aOther); }

private:
    using Release = void (*)(char*);

    static void Free(char* aText) { delete[] aText; }

    void Assign(const char* aText, size_t aLength) noexcept
    {
        std::unique_ptr<char, Release> lText(nullptr, &KyString::Free);
        if (aText != nullptr && aLength > 0 && aLength < UINT32_MAX)
        {
            lText.reset(new (std::nothrow) char[aLength + 1]);
        }
        if (lText != nullptr)
        {
            std::memcpy(lText.get(), aText, aLength);
            lText.get()[aLength] = '\0';
        }
        mLength = lText != nullptr ? static_cast<uint32_t>(aLength) : 0;
        mText = std::move(lText);
    }

    std::unique_ptr<char, Release> mText{nullptr, &KyString::Free};
    uint32_t mLength = 0;
};
