#pragma once

#include "kyserial/Device/DeviceSelector.h"
#include "kyserial/Device/PortLine.h"
#include "kyserial/Text/Failure.h"

#include <CommandLine/ParserNames.h>
#include <KySerial/KySerialTypes.h>
#include <Platform/Console.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace KySerialTool
{

/// Adds an option whose value is a number from 0 to aMaximum.
/// \param aUnit  What is counted, "milliseconds" for example; part of the help and of the refusal.
CLI::Option* AddNumberOption(CLI::App& aCommand, const std::string& aName, uint32_t aMaximum,
                             const std::string& aUnit, const std::string& aDescription, uint32_t& aValue);

/// Adds an option whose value is a number of bytes, "4096" or "4KiB", up to aMaximum.
CLI::Option* AddSizeOption(CLI::App& aCommand, const std::string& aName, uint32_t aMaximum,
                           const std::string& aDescription, uint32_t& aValue);

/// Adds an option whose value is one of a few numbers.
/// \param aValues  At least one; part of the help and of the refusal.
/// \param aValue   Stays empty while the option is not given.
CLI::Option* AddNumberChoice(CLI::App& aCommand, const std::string& aName,
                             const std::vector<uint32_t>& aValues, const std::string& aDescription,
                             std::optional<uint32_t>& aValue);

/// Throws what a command line gets that has no word of a list: the word that was meant, or all of them.
/// \param aWords  "a|b|c".
[[noreturn]] void RefuseWord(const std::string& aName, const std::string& aText, const std::string& aWords);

/// Adds an option whose value is one of a few words. \param aTake  Gets the text, and throws what it does not take.
CLI::Option* AddWordOption(CLI::App& aCommand, const std::string& aName, const std::string& aWords,
                           const std::function<void(const std::string&)>& aTake,
                           const std::string& aDescription);

/// Adds an option whose value is one of a few words.
/// \param aWords  "a|b|c".
/// \param aParse  What a word means; nothing for any other text.
template<typename Value, typename Target>
CLI::Option* AddChoice(CLI::App& aCommand, const std::string& aName, const std::string& aWords,
                       std::optional<Value> (*aParse)(const std::string&), const std::string& aDescription,
                       Target& aTarget)
{
    const auto lTake = [=, &aTarget](const std::string& aText)
    {
        const std::optional<Value> lValue = aParse(aText);
        if (!lValue.has_value())
        {
            RefuseWord(aName, aText, aWords);
        }
        aTarget = *lValue;
    };
    return AddWordOption(aCommand, aName, aWords, lTake, aDescription);
}

/// Adds --baud, --parity, --bits and --stop. What a bridge does not know is refused.
void AddLineOptions(CLI::App& aCommand, LineSelection& aSelection);

/// What every command takes.
struct CommonOptions
{
    DeviceSelection mDevice;
    int mLogLevel = 0; ///< As JxUtilsLib::Logger::SetPriority() takes it; above PriorityFatal is silence.

    CommonOptions();
};

/// Adds --device, --log-level and the options of the simulated camera to a command. \return --device.
CLI::Option* AddCommonOptions(CLI::App& aCommand, CommonOptions& aOptions);

/// Adds --log-level alone.
void AddLogOption(CLI::App& aCommand, CommonOptions& aOptions);

/// Which ports a command works on.
enum class PortKind
{
    Any,
    Bulk ///< I2C and SPI are there only.
};

/// Adds the required option --port.
void AddPortOption(CLI::App& aCommand, PortKind aKind, KyDeviceSerial& aPort);

/// Makes the log level count, sends broken assertions of the library to the log, and goes on after them:
/// some of them stand at questions that a program may well ask, such as that about the registers of bulk
/// port 1.
void ApplyLogOptions(const CommonOptions& aOptions);

/// What a command finds when it runs.
struct Context
{
    KyToolPlatform::Console& mConsole;
    CommonOptions mCommon{};
    /// The command that the command line names; a command sets it while the line is taken apart.
    std::function<ExitCode(Context&)> mAction{};
};

/// Connects the device that the command line names. Throws OperationError when that fails.
std::unique_ptr<Device> OpenDevice(Context& aContext, DeviceAccess aAccess = DeviceAccess::Control);

/// An example of a line of input for a shell of this system: "printf 'STATUS?\r\n'".
const char* StatusQuestion();

/// The first line of the input, without its end. \return False at the end of the input.
bool ReadLine(KyToolPlatform::Console& aConsole, std::string& aLine);

/// Writes to the standard output. Throws OperationError when it is broken.
void Print(Context& aContext, const std::string& aText);

} // namespace KySerialTool
