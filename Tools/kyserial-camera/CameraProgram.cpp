#include "kyserial-camera/CameraProgram.h"

#include "CommandLine/Explain.h"
#include "CommandLine/HelpPage.h"
#include "CommandLine/PlainText.h"
#include "kyserial-camera/CameraConsole.h"
#include "kyserial/Version.h"

#include "Simulator/Camera/CameraWithDevices.h"
#include "Simulator/Network/NetworkCamera.h"

#include <CLI/CLI.hpp>

#include <array>
#include <charconv>
#include <chrono>
#include <cstdio>
#include <exception>
#include <filesystem>
#include <memory>
#include <random>
#include <stdexcept>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

namespace KySerialCamera
{

namespace
{

/// A packet has room for 33 events. \return What is wrong, or nothing.
std::string CheckEventCount(std::string& aText)
{
    constexpr unsigned cMost = 33;
    unsigned lCount = 0;
    const char* const lEnd = aText.data() + aText.size();
    const std::from_chars_result lRead = std::from_chars(aText.data(), lEnd, lCount);
    const bool lFits = lRead.ec == std::errc() && lRead.ptr == lEnd && lCount >= 1 && lCount <= cMost;
    return lFits ? "" : '"' + aText + "\" does not fit; use 1 to " + std::to_string(cMost);
}

using namespace KySimulator;
using KyToolPlatform::Console;

constexpr int cOk = 0;
constexpr int cFailed = 1;
constexpr int cUsage = 2;

struct Options
{
    std::string mAddress = "127.0.0.1";
    uint16_t mPort = KyGvcp::cControlPort;
    bool mNoBroadcast = false;
    std::string mMac{};
    std::string mSerialNumber{};
    std::string mUserID{};
    EquipmentOptions mEquipment{};
    NetworkForms mForms{};
    uint16_t mCollects = 0; // ms
    std::string mStateFile{};
    std::vector<std::pair<std::string, std::string>> mFaults{}; // commands of the console and what follows
};

void AddOptions(CLI::App& aProgram, Options& aOptions)
{
    aProgram.add_option("--address", aOptions.mAddress, "IPv4 address of this computer to be at (127.0.0.1)")
        ->type_name("ADDRESS");
    aProgram.add_option("--port", aOptions.mPort, "UDP port, 0 to 65535 (3956); 0 picks one")->type_name("N");
    aProgram.add_flag("--no-broadcast", aOptions.mNoBroadcast, "Do not answer discovery that is broadcast");
    aProgram.add_option("--mac", aOptions.mMac, "MAC address, 12 hex digits (default: by address)")
        ->type_name("MAC");
    aProgram
        .add_option("--serial", aOptions.mSerialNumber, "Serial number, at most 16 characters (by address)")
        ->type_name("TEXT");
    aProgram.add_option("--user-id", aOptions.mUserID, "Name given by the user, 16 characters at most")
        ->type_name("TEXT");
    aProgram.add_flag("--fast", aOptions.mEquipment.mFast, "Lines take no time");
    aProgram.add_flag("--no-uart-registers", aOptions.mEquipment.mFeaturesOnly,
                      "No UARTs, and bulk port 0 is driven through features");
    aProgram.add_option("--state", aOptions.mStateFile, "File that keeps the memories on the buses")
        ->type_name("FILE");
    aProgram
        .add_option("--events-per-packet", aOptions.mForms.mEventsPerPacket,
                    "Send events that wait together, at most N (1 to 33)")
        ->type_name("N")
        ->check(CLI::Validator(CheckEventCount, ""))
        ->group("Forms");
    aProgram
        .add_option("--collect", aOptions.mCollects, "Send bytes of lines together every MS ms (0: at once)")
        ->type_name("MS")
        ->group("Forms");
    aProgram.add_flag("--long-event-ids", aOptions.mForms.mLongEventIds, "Events have 64-bit numbers")
        ->group("Forms");
    aProgram.add_flag("--zip", aOptions.mForms.mZippedDescription, "The description is a ZIP archive")
        ->group("Forms");
    aProgram
        .add_flag("--second-url", aOptions.mForms.mOnlySecondUrl,
                  "Only the second address of the description is good")
        ->group("Forms");
    const std::array<std::array<const char*, 3>, 8> lFaults = {
        {{"drop", "WHAT:N", "Lose every Nth command, ack, event or event-ack"},
         {"double", "WHAT:N", "Double every Nth of them"},
         {"delay", "WHAT:N:MS", "Delay every Nth of them by MS milliseconds"},
         {"busy", "N", "Answer every Nth command with busy"},
         {"slow", "N:MS", "Take MS milliseconds for every Nth command, announced"},
         {"silent", "N:MS", "Take MS milliseconds for every Nth command, unannounced"},
         {"late", "WHAT:N:MS", "Bring every Nth of them once more, MS milliseconds later"},
         {"unplug", "N", "Leave the network with the Nth command"}}};
    for (const auto& [lCommand, lValue, lText] : lFaults)
    {
        aProgram
            .add_option_function<std::vector<std::string>>(
                std::string("--") + lCommand,
                [&aOptions, lName = std::string(lCommand)](const std::vector<std::string>& aValues)
                {
                    for (const std::string& lOne : aValues)
                    {
                        aOptions.mFaults.emplace_back(lName, lOne);
                    }
                },
                lText)
            ->type_name(lValue)
            ->allow_extra_args(false)
            ->group("Faults");
    }
}

class UsageError : public std::runtime_error
{
public:
    using std::runtime_error::runtime_error;
};

uint64_t MacOf(const Options& aOptions, uint32_t aAddress)
{
    constexpr uint64_t cLocallyAdministered = 0x020000000000U;
    constexpr uint64_t cBelowFirstByte = 0xFFFFFFFFFFU;
    constexpr uint32_t cByte = 0xFF;
    if (aOptions.mMac.empty())
    {
        // Cameras at other addresses, or other ports of one, are other cameras. One at any free port cannot go by its port: with
        // a byte by chance two of twenty would be one camera in every second run.
        if (aOptions.mPort == 0)
        {
            std::random_device lRandom;
            const uint64_t lChance = static_cast<uint64_t>(lRandom()) << 32U | lRandom();
            return cLocallyAdministered | (lChance & cBelowFirstByte);
        }
        const uint32_t lPort = aOptions.mPort - KyGvcp::cControlPort;
        return cLocallyAdministered | (static_cast<uint64_t>(lPort & cByte) << 32U) | aAddress;
    }
    const bool lDigits = aOptions.mMac.size() == 12 &&
                         aOptions.mMac.find_first_not_of("0123456789abcdefABCDEF") == std::string::npos;
    if (!lDigits)
    {
        throw UsageError("--mac: \"" + aOptions.mMac + "\" does not fit; use 12 hexadecimal digits");
    }
    return std::stoull(aOptions.mMac, nullptr, 16);
}

std::string ShortText(const char* aOption, const std::string& aText)
{
    // The register has no room for more, so discovery would show the beginning only.
    if (aText.size() > KyGvcp::cShortTextSize)
    {
        throw UsageError(std::string(aOption) + ": \"" + aText + "\" is too long; use 16 characters at most");
    }
    return aText;
}

CameraConfiguration Configure(const Options& aOptions, uint32_t aAddress)
{
    CameraConfiguration lConfiguration;
    lConfiguration.mCollects = std::chrono::milliseconds(aOptions.mCollects);
    lConfiguration.mMacAddress = MacOf(aOptions, aAddress);
    lConfiguration.mUserID = ShortText("--user-id", aOptions.mUserID);
    lConfiguration.mSerialNumber = ShortText("--serial", aOptions.mSerialNumber);
    // By the MAC address: two cameras of one computer have different serial numbers without an option.
    if (lConfiguration.mSerialNumber.empty())
    {
        std::array<char, 16> lText{};
        std::snprintf(lText.data(), lText.size(), "SIM%012llX",
                      static_cast<unsigned long long>(lConfiguration.mMacAddress));
        lConfiguration.mSerialNumber = lText.data();
    }
    return lConfiguration;
}

bool TryPrint(Console& aConsole, const std::string& aText)
{
    const std::string lLine = aText + '\n';
    return aConsole.Write(reinterpret_cast<const uint8_t*>(lLine.data()), lLine.size());
}

void Print(Console& aConsole, const std::string& aText)
{
    if (!TryPrint(aConsole, aText))
    {
        throw std::runtime_error("cannot write to the standard output");
    }
}

/// Carries out the lines of the console until the program is asked to end.
class Session
{
public:
    Session(NetworkCamera& aCamera, Console& aConsole) : mCamera(aCamera), mConsole(aConsole) {}

    void Run()
    {
        std::array<uint8_t, 256> lBuffer{};
        bool lOpen = true;
        while (!mQuit && !mConsole.IsInterrupted())
        {
            if (!lOpen)
            {
                // The camera serves on without a console, until the program is asked to end.
                static_cast<void>(mConsole.WaitForInterrupt(Console::cInfinite));
                continue;
            }
            size_t lSize = 0;
            lOpen = mConsole.Read(lBuffer.data(), lBuffer.size(), lSize, Console::cInfinite) !=
                    Console::ReadResult::End;
            Take(lBuffer.data(), lSize);
            if (!lOpen && !mLine.empty())
            {
                Execute(std::exchange(mLine, {})); // the last line of a file may lack its end
            }
        }
    }

private:
    void Take(const uint8_t* aData, size_t aSize)
    {
        constexpr size_t cLongest = 10000;
        for (size_t lIndex = 0; lIndex < aSize && !mQuit; ++lIndex)
        {
            if (aData[lIndex] == '\n')
            {
                Execute(std::exchange(mLine, {}));
            }
            // The rest of a longer line is dropped: an input without line ends must not fill memory.
            else if (mLine.size() < cLongest)
            {
                mLine += static_cast<char>(aData[lIndex]);
            }
        }
    }

    void Execute(const std::string& aLine)
    {
        const ConsoleAnswer lAnswer = ExecuteLine(mCamera, aLine);
        mQuit = lAnswer.mQuit;
        if (!lAnswer.mText.empty())
        {
            static_cast<void>(
                TryPrint(mConsole, lAnswer.mText)); // ignored: the camera goes on without a reader
        }
    }

    NetworkCamera& mCamera;
    Console& mConsole;
    std::string mLine;
    bool mQuit = false;
};

void SetFaults(NetworkCamera& aCamera, const Options& aOptions)
{
    for (const auto& [lCommand, lValue] : aOptions.mFaults)
    {
        // Faults on the command line are the console's commands, so both have the same words and limits.
        const ConsoleAnswer lAnswer = ExecuteOption(aCamera, lCommand, lValue);
        if (!lAnswer.mGood)
        {
            std::string lText = "--";
            lText.append(lCommand).append(": \"").append(lValue).append("\" does not fit; ");
            throw UsageError(lText.append(lAnswer.mText, lAnswer.mText.find("use "))); // after "error: "
        }
    }
}

void Serve(const Options& aOptions, Console& aConsole)
{
    const auto lAddress = KyGvcp::ParseAddress(aOptions.mAddress);
    if (!lAddress.has_value() || *lAddress == 0)
    {
        throw UsageError("--address: \"" + aOptions.mAddress +
                         "\" is no address; use four numbers like 127.0.0.1");
    }
    // Everything on the command line is looked at before the camera is on the network.
    CameraWithDevices lEquipped(aOptions.mEquipment, Configure(aOptions, *lAddress));
    // First: Windows does not open a directory, which then looks like a file that is not there yet.
    std::error_code lUnknown;
    if (std::filesystem::is_directory(aOptions.mStateFile, lUnknown))
    {
        throw std::runtime_error("--state: " + aOptions.mStateFile + " is a directory");
    }
    if (!aOptions.mStateFile.empty() && !lEquipped.LoadState(aOptions.mStateFile))
    {
        throw std::runtime_error("--state: " + aOptions.mStateFile + " was not written by this program");
    }
    NetworkCamera lCamera(lEquipped.GetCamera(), {{*lAddress, aOptions.mPort}, !aOptions.mNoBroadcast},
                          aOptions.mForms);
    SetFaults(lCamera, aOptions);
    if (!aConsole.WatchInterrupts() || !lCamera.Start())
    {
        throw std::runtime_error("cannot be at " + lCamera.GetError());
    }
    // Scripts wait for this line.
    Print(aConsole, "kyserial-camera: ready at " + EndpointText(lCamera.GetEndpoint()) +
                        (lCamera.HearsBroadcasts() ? ", answers broadcasts" : ""));
    Session(lCamera, aConsole).Run();
    // Stopped before the statistics are taken, so that they are final, and before the state is saved.
    lCamera.Stop();
    // A broken output is reported last: the state must be saved in any case.
    const bool lSaid = TryPrint(aConsole, StatisticsText(lCamera.GetStatistics()));
    if (!aOptions.mStateFile.empty() && !lEquipped.SaveState(aOptions.mStateFile))
    {
        throw std::runtime_error("--state: cannot write " + aOptions.mStateFile);
    }
    if (!lSaid)
    {
        throw std::runtime_error("cannot write to the standard output");
    }
}

int Complain(const std::string& aText, int aStatus)
{
    static_cast<void>(std::fprintf(stderr, "kyserial-camera: %s\n",
                                   KyCommandLine::Escaped(aText).c_str())); // ignored: nowhere else to
    return aStatus;
}

int Show(Console& aConsole, const std::string& aText)
{
    return aConsole.Write(reinterpret_cast<const uint8_t*>(aText.data()), aText.size())
               ? cOk
               : Complain("cannot write to the standard output", cFailed);
}

} // namespace

int RunProgram(int aCount, const char* const* aArguments, Console& aConsole)
{
    Options lOptions;
    CLI::App lProgram("A simulated camera with serial ports, as a GigE Vision device on the network",
                      "kyserial-camera");
    lProgram.formatter(std::make_shared<KyCommandLine::HelpPage>());
    lProgram.allow_windows_style_options(false); // as kyserial has it
    lProgram.set_help_flag("-h,--help", "Show this help");
    lProgram.set_version_flag("--version", "kyserial-camera " KYSERIAL_VERSION)
        ->description("Show the version");
    bool lDescribe = false;
    lProgram.add_flag("--describe", lDescribe)->group("");
    lProgram.footer("Commands on the standard input change the faults; 'help' lists them. Exit status: "
                    "0 stopped, 1 the camera cannot be there, 2 a wrong command line.\n\n"
                    "Examples:\n  kyserial-camera --fast --state memories.bin\n"
                    "  kyserial-camera --address 192.168.1.20 --drop ack:50");
    AddOptions(lProgram, lOptions);
    try
    {
        lProgram.parse(aCount, aArguments);
        if (lDescribe)
        {
            return Show(aConsole, KyCommandLine::Description(lProgram));
        }
        Serve(lOptions, aConsole);
        return cOk;
    }
    catch (const CLI::CallForHelp&)
    {
        return Show(aConsole, lProgram.help());
    }
    catch (const CLI::CallForVersion& lVersion)
    {
        return Show(aConsole, lVersion.what() + std::string("\n"));
    }
    catch (const CLI::ParseError& lError)
    {
        return Complain(KyCommandLine::Explain(lProgram, lError), cUsage);
    }
    catch (const UsageError& lError)
    {
        return Complain(lError.what(), cUsage);
    }
    catch (const std::exception& lError)
    {
        return Complain(lError.what(), cFailed);
    }
}

} // namespace KySerialCamera
