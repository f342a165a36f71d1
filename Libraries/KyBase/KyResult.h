#pragma once

#include "KyBase/KyPermanent.h"
#include "KyBase/KyString.h"

#include <cstdint>

/// The result of every operation that can fail: a 32-bit code and, when there is more to say, a text.
///
/// A value, complete in its header. Results that come from a device adapter pass through the library with
/// their code and description unchanged, so a code may lie outside the table below.
class KyResult
{
public:
    /// The codes that this library produces itself.
    enum Code : uint32_t
    {
        OK = 0x0000,               ///< Done.
        NO_CONNECTION = 0x0017,    ///< No adapter, a disconnected device, or a bridge that is not running.
        NOT_READABLE = 0x0019,     ///< A feature that has to be read cannot be.
        UNSUPPORTED = 0x001A,      ///< The device does not offer what was asked for.
        BUFFER_TOO_SMALL = 0x001B, ///< The device's transmit register has no room for any payload.
        WRONG_STATE = 0x001C,      ///< Not now: already started, or started as something else.
        TIMED_OUT = 0x001E,        ///< Nothing came, or nothing was confirmed, in time.
        NOT_OPEN = 0x0605,         ///< Open() has to come first.
        FAILURE = 0x4000,          ///< The device or the system refused; the description says which step.
        BAD_PARAMETER = 0x4001     ///< An argument that can never work.
    };

    /// A result without a description.
    KyResult(uint32_t aCode = OK) noexcept // NOLINT(google-explicit-constructor): "return KyResult::OK;"
        : mCode(aCode)
    {
    }

    /// A result with a description, which is copied.
    KyResult(uint32_t aCode, const KyString& aDescription) noexcept : mCode(aCode), mDescription(aDescription)
    {
    }

    /// True only for code 0.
    bool IsOK() const noexcept { return mCode == OK; }

    /// The code as given.
    uint32_t GetCode() const noexcept { return mCode; }

    /// The code's name, "TIMED_OUT" for example; "UNKNOWN" for a code outside the table. Valid until the
    /// program ends.
    const KyString& GetCodeString() const noexcept { return CodeText(mCode); }

    /// What went wrong, in words; empty when the code says it all. Valid as long as the result.
    const KyString& GetDescription() const noexcept { return mDescription; }

    /// The code's name as a C string; never null, valid until the program ends.
    operator const char*() const noexcept // NOLINT(google-explicit-constructor): results go into "%s"
    {
        return GetCodeString().GetAscii();
    }

private:
    struct CodeTexts
    {
        struct Entry
        {
            uint32_t mCode;
            KyString mText;
        };
        const Entry mEntries[10] = {
            {OK, "OK"},
            {NO_CONNECTION, "NO_CONNECTION"},
            {NOT_READABLE, "NOT_READABLE"},
            {UNSUPPORTED, "UNSUPPORTED"},
            {BUFFER_TOO_SMALL, "BUFFER_TOO_SMALL"},
            {WRONG_STATE, "WRONG_STATE"},
            {TIMED_OUT, "TIMED_OUT"},
            {NOT_OPEN, "NOT_OPEN"},
            {FAILURE, "FAILURE"},
            {BAD_PARAMETER, "BAD_PARAMETER"},
        };
        const KyString mUnknown{"UNKNOWN"};
    };

    static const KyString& CodeText(uint32_t aCode) noexcept
    {
        static KyPermanent<CodeTexts> sTexts;
        const CodeTexts& lTexts = sTexts.Get();
        for (const CodeTexts::Entry& lEntry : lTexts.mEntries)
        {
            if (lEntry.mCode == aCode)
            {
                return lEntry.mText;
            }
        }
        return lTexts.mUnknown;
    }

    uint32_t mCode;
    KyString mDescription;
};
