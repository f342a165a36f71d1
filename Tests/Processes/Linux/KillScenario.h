#pragma once

#include <functional>
#include <memory>
#include <ostream>
#include <string>
#include <vector>

/// Something that a process does until it is killed, and what the survivor then has to find. Made anew for
/// every death: construction sets the scene.
class KillScenario
{
public:
    virtual ~KillScenario() = default;

    /// In the child, before the first instruction at which it may be killed.
    virtual void Before() {}

    /// In the survivor, when the child stands before that instruction.
    virtual void Beside() {}

    /// In the child.
    virtual void Steps() = 0;

    /// In the survivor, when the child is gone.
    /// \return What is wrong; empty if nothing is.
    virtual std::string Check() = 0;
};

struct KillCase
{
    std::string mName;
    std::function<std::unique_ptr<KillScenario>()> mMake;
    bool mIsLarge = false; ///< Too long to be surveyed, or killed in every call, in a short run.

    friend void PrintTo(const KillCase& aCase, std::ostream* aStream) { *aStream << aCase.mName; }
};

std::vector<KillCase> GetFifoKillCases();
std::vector<KillCase> GetRegistryKillCases();
std::vector<KillCase> GetBridgeKillCases();
