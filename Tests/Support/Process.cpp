#include "Support/Process.h"

#include "Support/WaitFor.h"

#include <atomic>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <functional>
#include <random>
#include <sstream>
#include <utility>

namespace KyTest
{

namespace
{

bool WaitUntil(const std::function<bool()>& aCondition)
{
    return WaitFor(aCondition, std::chrono::milliseconds(Process::cPatience));
}

} // namespace

bool Process::Start(const std::string& aName, const std::vector<std::string>& aArguments, const Files& aFiles)
{
    mPaths = {TemporaryFile(".in"), TemporaryFile(".out"), TemporaryFile(".err")};
    return WriteFile(mPaths.mInput, aFiles.mInputText) && WriteFile(mPaths.mOutput, "") &&
           WriteFile(mPaths.mError, "") && StartChild(ProgramFolder() + aName, aArguments, aFiles);
}

std::vector<std::string> Process::Environment(const std::vector<std::string>& aOwn, const Files& aFiles)
{
    std::map<std::string, std::string> lVariables = aFiles.mEnvironment;
    lVariables.insert({"KYSERIAL_DEVICE", "sim"});
    std::vector<std::string> lEnvironment;
    for (const std::string& lEntry : aOwn)
    {
        if (lVariables.count(lEntry.substr(0, lEntry.find('='))) == 0)
        {
            lEnvironment.push_back(lEntry);
        }
    }
    for (const auto& [lName, lText] : lVariables)
    {
        if (!lText.empty())
        {
            lEnvironment.emplace_back(lName).append("=").append(lText);
        }
    }
    return lEnvironment;
}

std::string Process::Output() const
{
    return ReadFile(mPaths.mOutput);
}

std::string Process::Error() const
{
    return ReadFile(mPaths.mError);
}

bool Process::WaitForOutput(const std::string& aText)
{
    return WaitUntil([&] { return Output().find(aText) != std::string::npos; });
}

bool Process::WaitForError(const std::string& aText)
{
    return WaitUntil([&] { return Error().find(aText) != std::string::npos; });
}

bool Process::WaitForTerminal(const std::string& aText)
{
    return WaitUntil([&] { return TerminalText().find(aText) != std::string::npos; });
}

std::string Process::TemporaryFile(const std::string& aSuffix)
{
    static const uint64_t cRun =
        (static_cast<uint64_t>(std::random_device{}()) << 32U) | std::random_device{}();
    static std::atomic<uint32_t> sCount{0};
    const std::string lName = "kytest-" + std::to_string(cRun) + "-" + std::to_string(++sCount) + aSuffix;
    return (std::filesystem::temp_directory_path() / lName).string();
}

std::string ReadFile(const std::string& aPath)
{
    std::ifstream lFile(aPath, std::ios::binary);
    std::ostringstream lContent;
    // In one piece, not byte by byte: many tests read a growing file again and again.
    lContent << lFile.rdbuf();
    return std::move(lContent).str();
}

bool WriteFile(const std::string& aPath, const std::string& aContent)
{
    std::ofstream lFile(aPath, std::ios::binary | std::ios::trunc);
    lFile << aContent;
    return static_cast<bool>(lFile.flush());
}

} // namespace KyTest
