#pragma once

#include "KySerial/IKyDeviceAdapter.h"

#include <thread>
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
/// selected feature means must not change inside a scope. A thread may nest scopes. Scopes of different devices never wait for one
/// another: a device that does not answer holds up its own bridges only.
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
    struct OpenScopes;
    static OpenScopes& GetOpenScopes();
    void Enter();
    void Leave();

    IKyDeviceAdapter* const mDevice;
    const std::thread::id mThread = std::this_thread::get_id();
    FeatureSelectorScope* mNext = nullptr; // of the scopes that are open
    std::vector<std::pair<KyString, KyString>> mWritten;
};

} // namespace KySerialLib
