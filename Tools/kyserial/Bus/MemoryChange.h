#pragma once

#include "kyserial/Options/Options.h"
#include "kyserial/Text/Output.h"

#include <functional>
#include <string>

namespace KySerialTool
{

/// Makes sure that the user wants a memory changed: asks on a terminal, and elsewhere insists on -y.
/// \param aYes       -y was given.
/// \param aInputUsed The standard input has the bytes, so that no answer can come from it.
/// \param aWhat      "this writes 5000 bytes into the flash memory on bulk3".
/// Throws UsageError without -y where there is no terminal to ask on, and OperationError for any answer but yes.
void ConfirmChange(Context& aContext, bool aYes, bool aInputUsed, const std::string& aWhat);

/// From now on Ctrl-C and a request to end let the program set the bus back before it ends; ThrowIfInterrupted()
/// has to be called now and then. To be called before a device is connected.
void WatchInterrupts(Context& aContext);

/// Throws OperationError after Ctrl-C or a request to end.
void ThrowIfInterrupted(const Context& aContext);

/// The progress of a read or a change of a memory. When it ends early, the failure says up to which address the
/// memory was changed.
class MemoryProgress
{
public:
    using Advance = std::function<void(size_t)>;

    /// \param aLabel  Of the bar, "writing".
    /// \param aDone   What has happened to the bytes so far, "written"; empty for a read, which changes nothing.
    MemoryProgress(const Context& aContext, const std::string& aLabel, const std::string& aDone,
                   size_t aOffset, size_t aSize);

    /// Runs aSteps, which calls its argument with the number of bytes that are newly done. Throws OperationError
    /// with the range that is done when aSteps fails or the program is interrupted.
    void Run(const std::function<void(const Advance&)>& aSteps);

    /// Bytes that needed no step.
    void Skip(size_t aCount) { Count(aCount); }

private:
    void Count(size_t aCount);

    const Context& mContext;
    const std::string mVerb;
    const size_t mOffset;
    size_t mDone = 0;
    Progress mBar;
};

} // namespace KySerialTool
