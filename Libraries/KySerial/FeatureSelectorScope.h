#pragma once

#include "KySerial/IKyDeviceAdapter.h"

#include <mutex>
#include <utility>
#include <vector>

namespace KySerialLib
{

/// Addresses features that depend on a selector: sets the selector, and sets it once more when the scope
/// ends.
///
/// The scope does not put the former value back: after every bridge operation the selector stays on the
/// bridged port, and device set-ups rely on finding it there.
///
/// Scopes of one device on several threads, those of bridges to its other ports, wait for one another: what a
/// selected feature means must not change inside a scope. A thread may nest scopes.
class FeatureSelectorScope
{
public:
    /// \param aDevice  Not owned; may be null as long as Set() is not called.
    explicit FeatureSelectorScope(IKyDeviceAdapter* aDevice);
    /// Writes each value that Set() has written once more; failures are ignored.
    ~FeatureSelectorScope();
    FeatureSelectorScope(const FeatureSelectorScope&) = delete;
    FeatureSelectorScope& operator=(const FeatureSelectorScope&) = delete;

    /// Gives a selector a value. One that has it already, or that cannot be read, is left alone.
    /// \return OK; or the failure to write it.
    [[nodiscard]] KyResult Set(const KyString& aName, const KyString& aValue);

private:
    IKyDeviceAdapter* const mDevice;
    const std::unique_lock<std::recursive_mutex> mLock;
    std::vector<std::pair<KyString, KyString>> mWritten;
};

} // namespace KySerialLib
