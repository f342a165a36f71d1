#pragma once

#include "Adapters/GigE/GenApi/IRegisterSpace.h"

#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace KyTest
{

/// Aravis's evaluator of descriptions, which shares no line with ours, on a register space of a test. Nothing
/// is kept: each access reads the space. Descriptions have to be sound; it follows circles until its stack
/// ends.
class AravisJudge
{
public:
    AravisJudge(const std::string& aXml, KyGigE::IRegisterSpace& aSpace);
    ~AravisJudge();
    AravisJudge(const AravisJudge&) = delete;
    AravisJudge& operator=(const AravisJudge&) = delete;

    /// The element that the node is; empty for none.
    std::string GetElement(const std::string& aName);
    bool IsAvailable(const std::string& aName);
    bool IsLocked(const std::string& aName);
    /// "RO", "WO" or "RW".
    std::string GetAccess(const std::string& aName);
    // Empty: Aravis reports no such feature.
    std::optional<int64_t> GetInteger(const std::string& aName);
    std::optional<double> GetFloat(const std::string& aName);
    std::optional<std::string> GetText(const std::string& aName);
    std::optional<std::vector<std::string>> GetEntries(const std::string& aName);
    std::optional<int64_t> GetLimit(const std::string& aName, bool aMax);
    std::optional<double> GetFloatLimit(const std::string& aName, bool aMax);
    bool SetInteger(const std::string& aName, int64_t aValue);
    bool SetFloat(const std::string& aName, double aValue);

    /// Aravis's simulated camera: its description, and its registers.
    static std::string GetFakeXml();
    static std::unique_ptr<KyGigE::IRegisterSpace, void (*)(KyGigE::IRegisterSpace*)> MakeFakeSpace();

private:
    struct Parts;
    const std::unique_ptr<Parts> mThis;
};

} // namespace KyTest
