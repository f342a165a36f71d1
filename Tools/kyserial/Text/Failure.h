#pragma once

#include <KyBase/KyResult.h>

#include <cstdint>
#include <stdexcept>
#include <string>

namespace KySerialTool
{

/// What the program leaves to the shell. Scripts rely on the numbers.
enum class ExitCode : int
{
    Ok = 0,
    Failed = 1, ///< The device, the library or a file refused; the reason is on the error output.
    Usage = 2   ///< Nothing was tried: the command line makes no sense.
};

/// The command line makes no sense; the text says what would have been right. Ends the program with
/// ExitCode::Usage.
class UsageError : public std::runtime_error
{
public:
    using std::runtime_error::runtime_error;
};

/// Something that was tried did not work. Ends the program with ExitCode::Failed.
class OperationError : public std::runtime_error
{
public:
    /// \param aCode  The library's code for it, if there is one.
    explicit OperationError(const std::string& aText, uint32_t aCode = KyResult::FAILURE)
        : std::runtime_error(aText), mCode(aCode)
    {
    }

    uint32_t GetCode() const { return mCode; }

private:
    uint32_t mCode;
};

/// A result as a user reads it: "TIMED_OUT: Timed out waiting", or the number of a code without a name.
std::string ResultText(const KyResult& aResult);

/// Throws an OperationError "aWhat: result" unless the result is OK.
void Check(const KyResult& aResult, const std::string& aWhat);

/// Writes aText as one line to the error output.
void PrintNote(const std::string& aText);

/// Writes "kyserial: aText" as one line to the error output, with control characters written out.
void PrintError(const std::string& aText);

} // namespace KySerialTool
