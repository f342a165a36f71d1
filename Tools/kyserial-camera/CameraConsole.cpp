#include "kyserial-camera/CameraConsole.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <functional>
#include <optional>
#include <sstream>
#include <utility>

namespace KySerialCamera
{

namespace
{

using namespace KySimulator;
using Words = std::vector<std::string>;

constexpr uint32_t cMaximum = 1000000; // counts and milliseconds

struct Command
{
    const char* mName;
    const char* mArguments;
    size_t mLeast;
    size_t mMost;
    ConsoleAnswer (*mAction)(NetworkCamera& aCamera, const Words& aWords);
};

ConsoleAnswer Ok()
{
    return {true, false, "ok"};
}

ConsoleAnswer Error(const std::string& aText)
{
    return {false, false, "error: " + aText};
}

std::optional<uint32_t> Number(const std::string& aText)
{
    uint32_t lNumber = 0;
    const char* const lEnd = aText.data() + aText.size();
    const auto [lStop, lError] = std::from_chars(aText.data(), lEnd, lNumber);
    const bool lGood = lError == std::errc() && lStop == lEnd && lNumber <= cMaximum;
    return lGood ? std::optional<uint32_t>(lNumber) : std::nullopt;
}

std::optional<DatagramKind> Kind(const std::string& aText)
{
    constexpr std::array<std::pair<const char*, DatagramKind>, cDatagramKinds> cKinds = {
        {{"command", DatagramKind::Command},
         {"ack", DatagramKind::Acknowledge},
         {"event", DatagramKind::Event},
         {"event-ack", DatagramKind::EventAcknowledge}}};
    const auto* const lKind =
        std::find_if(cKinds.begin(), cKinds.end(), [&](const auto& aKind) { return aText == aKind.first; });
    return lKind != cKinds.end() ? std::optional<DatagramKind>(lKind->second) : std::nullopt;
}

/// The numbers from aWords[aFirst] on; empty when a word is no number.
std::optional<std::vector<uint32_t>> Numbers(const Words& aWords, size_t aFirst)
{
    std::vector<uint32_t> lNumbers;
    lNumbers.reserve(aWords.size());
    for (size_t lIndex = aFirst; lIndex < aWords.size(); ++lIndex)
    {
        const std::optional<uint32_t> lNumber = Number(aWords[lIndex]);
        if (!lNumber.has_value())
        {
            return {};
        }
        lNumbers.push_back(*lNumber);
    }
    return lNumbers;
}

/// Calls aChange with what the words say, if they say something that makes sense.
template<typename Change>
ConsoleAnswer ChangeKind(NetworkCamera& aCamera, const Words& aWords, const Change& aChange)
{
    const auto lKind = Kind(aWords[1]);
    const auto lNumbers = Numbers(aWords, 2);
    // A line does all that it says or nothing.
    if (!lKind.has_value() || !lNumbers.has_value())
    {
        return Error("use command, ack, event or event-ack, and numbers up to 1000000");
    }
    aCamera.ChangeFaults([&](NetworkFaults& aFaults) { aChange(aFaults, *lKind, *lNumbers); });
    return Ok();
}

template<typename Change>
ConsoleAnswer ChangeNumbers(const Words& aWords, const Change& aChange)
{
    const auto lNumbers = Numbers(aWords, 1);
    if (!lNumbers.has_value())
    {
        return Error("use numbers up to 1000000");
    }
    aChange(*lNumbers);
    return Ok();
}

/// "N MS": every Nth command.
template<typename Set>
ConsoleAnswer ChangeTime(NetworkCamera& aCamera, const Words& aWords, Set aSet)
{
    return ChangeNumbers(aWords,
                         [&](const auto& aNumbers)
                         {
                             aCamera.ChangeFaults(
                                 [&](NetworkFaults& aFaults)
                                 { (aFaults.*aSet)(aNumbers[0], std::chrono::milliseconds(aNumbers[1])); });
                         });
}

/// "WHAT N MS": every Nth datagram of a kind.
template<typename Set>
ConsoleAnswer ChangeKindsTime(NetworkCamera& aCamera, const Words& aWords, Set aSet)
{
    return ChangeKind(aCamera, aWords,
                      [&](NetworkFaults& aFaults, DatagramKind aKind, const auto& aNumbers)
                      { (aFaults.*aSet)(aKind, aNumbers[0], std::chrono::milliseconds(aNumbers[1])); });
}

std::optional<Port> PortOf(const std::string& aText)
{
    const std::string lName = aText.substr(0, 4);
    // The length excludes "uart01" and "bulk10", whose digits would make a good number.
    const auto lIndex = aText.size() == 5 ? Number(aText.substr(4)) : std::nullopt;
    if (!lIndex.has_value() || (lName != "uart" && lName != "bulk"))
    {
        return {};
    }
    const uint32_t lFirst = lName == "bulk" ? static_cast<uint32_t>(cUartCount) : 0;
    // A camera that does not have the port drops the bytes.
    const size_t lCount = lName == "bulk" ? cBulkCount : cUartCount;
    return *lIndex < lCount ? std::optional<Port>(static_cast<Port>(lFirst + *lIndex)) : std::nullopt;
}

ConsoleAnswer Inject(NetworkCamera& aCamera, const Words& aWords)
{
    const std::optional<Port> lPort = PortOf(aWords[1]);
    const std::string& lHex = aWords[2];
    std::vector<uint8_t> lBytes(lHex.size() / 2);
    bool lGood = lPort.has_value() && lHex.size() % 2 == 0;
    for (size_t lIndex = 0; lIndex < lBytes.size() && lGood; ++lIndex)
    {
        const char* const lDigits = lHex.data() + 2 * lIndex;
        // Both digits have to be taken: "4g" would count as 4 otherwise.
        lGood = std::from_chars(lDigits, lDigits + 2, lBytes[lIndex], 16).ptr == lDigits + 2;
    }
    if (!lGood)
    {
        return Error("use uart0, uart1 or bulk0 to bulk7, and bytes as hexadecimal digits");
    }
    aCamera.GetCamera().InjectBytes(*lPort, lBytes.data(), lBytes.size());
    return Ok();
}

ConsoleAnswer Help();

const std::array<Command, 18> cCommands = {
    {{"drop", "WHAT N", 2, 2,
      [](NetworkCamera& aCamera, const Words& aWords)
      {
          return ChangeKind(aCamera, aWords,
                            [](NetworkFaults& aFaults, DatagramKind aKind, const auto& aNumbers)
                            { aFaults.Drop(aKind, aNumbers[0]); });
      }},
     {"double", "WHAT N", 2, 2,
      [](NetworkCamera& aCamera, const Words& aWords)
      {
          return ChangeKind(aCamera, aWords,
                            [](NetworkFaults& aFaults, DatagramKind aKind, const auto& aNumbers)
                            { aFaults.Double(aKind, aNumbers[0]); });
      }},
     {"delay", "WHAT N MS", 3, 3,
      [](NetworkCamera& aCamera, const Words& aWords)
      { return ChangeKindsTime(aCamera, aWords, &NetworkFaults::Delay); }},
     {"busy", "N", 1, 1,
      [](NetworkCamera& aCamera, const Words& aWords)
      {
          return ChangeNumbers(
              aWords, [&](const auto& aNumbers)
              { aCamera.ChangeFaults([&](NetworkFaults& aFaults) { aFaults.SetBusy(aNumbers[0]); }); });
      }},
     {"slow", "N MS", 2, 2,
      [](NetworkCamera& aCamera, const Words& aWords)
      { return ChangeTime(aCamera, aWords, &NetworkFaults::SetSlow); }},
     {"silent", "N MS", 2, 2,
      [](NetworkCamera& aCamera, const Words& aWords)
      { return ChangeTime(aCamera, aWords, &NetworkFaults::SetSilent); }},
     {"late", "WHAT N MS", 3, 3,
      [](NetworkCamera& aCamera, const Words& aWords)
      { return ChangeKindsTime(aCamera, aWords, &NetworkFaults::Late); }},
     {"restart", "MS", 1, 1,
      [](NetworkCamera& aCamera, const Words& aWords)
      {
          return ChangeNumbers(aWords, [&](const auto& aNumbers)
                               { aCamera.Restart(std::chrono::milliseconds(aNumbers[0])); });
      }},
     {"clear", "", 0, 0,
      [](NetworkCamera& aCamera, const Words&)
      {
          aCamera.ChangeFaults([](NetworkFaults& aFaults) { aFaults.Clear(); });
          return Ok();
      }},
     {"freeze", "", 0, 0,
      [](NetworkCamera& aCamera, const Words&)
      {
          aCamera.Freeze(true);
          return Ok();
      }},
     {"thaw", "", 0, 0,
      [](NetworkCamera& aCamera, const Words&)
      {
          aCamera.Freeze(false);
          return Ok();
      }},
     {"unplug", "[N]", 0, 1,
      [](NetworkCamera& aCamera, const Words& aWords)
      {
          if (aWords.size() == 1)
          {
              aCamera.Unplug();
              return Ok();
          }
          return ChangeNumbers(aWords, [&](const auto& aNumbers) { aCamera.UnplugAt(aNumbers[0]); });
      }},
     {"plug", "", 0, 0,
      [](NetworkCamera& aCamera, const Words&) { return aCamera.Plug() ? Ok() : Error(aCamera.GetError()); }},
     {"release", "", 0, 0,
      [](NetworkCamera& aCamera, const Words&)
      {
          aCamera.ReleaseControl();
          return Ok();
      }},
     {"inject", "PORT HEX", 2, 2, Inject},
     {"stats", "", 0, 0,
      [](NetworkCamera& aCamera, const Words&) {
          return ConsoleAnswer{true, false, StatisticsText(aCamera.GetStatistics())};
      }},
     {"help", "", 0, 0, [](NetworkCamera&, const Words&) { return Help(); }},
     {"quit", "", 0, 0, [](NetworkCamera&, const Words&) {
          return ConsoleAnswer{true, true, "ok"};
      }}}};

std::string Usage(const Command& aCommand)
{
    const std::string lArguments = aCommand.mArguments;
    return aCommand.mName + (lArguments.empty() ? "" : ' ' + lArguments);
}

ConsoleAnswer Help()
{
    std::string lText;
    for (const Command& lCommand : cCommands)
    {
        lText += (lText.empty() ? "" : "; ") + Usage(lCommand);
    }
    return {true, false, lText};
}

} // namespace

ConsoleAnswer ExecuteLine(NetworkCamera& aCamera, const std::string& aLine)
{
    std::istringstream lStream(aLine);
    Words lWords;
    for (std::string lWord; lStream >> lWord;)
    {
        lWords.push_back(lWord);
    }
    // An empty line is no mistake: a script may end with one.
    if (lWords.empty())
    {
        return {};
    }
    const auto* const lCommand =
        std::find_if(cCommands.begin(), cCommands.end(),
                     [&](const Command& aCommand) { return lWords[0] == aCommand.mName; });
    if (lCommand == cCommands.end())
    {
        return Error('"' + lWords[0] + "\" is no command; 'help' lists them");
    }
    // Counted here once, so an action can take its words without a look at how many there are.
    if (lWords.size() - 1 < lCommand->mLeast || lWords.size() - 1 > lCommand->mMost)
    {
        return Error("use " + Usage(*lCommand));
    }
    return lCommand->mAction(aCamera, lWords);
}

ConsoleAnswer ExecuteOption(NetworkCamera& aCamera, const std::string& aCommand, const std::string& aValue)
{
    std::string lLine = aCommand + ' ' + aValue;
    // On the command line the words of a fault are parted by colons; a blank would need quotes.
    std::replace(lLine.begin(), lLine.end(), ':', ' ');
    return ExecuteLine(aCamera, lLine);
}

std::string StatisticsText(const NetworkCamera::Statistics& aStatistics)
{
    const GvcpServer::Counters& lControl = aStatistics.mControl;
    const MessageChannel::Counters& lMessages = aStatistics.mMessages;
    const std::array<std::pair<const char*, uint64_t>, 17> lNumbers = {
        {{"commands", lControl.mCommands},
         {"refused", lControl.mRefused},
         {"repeated", lControl.mRepeated},
         {"busy", lControl.mBusy},
         {"pending", lControl.mPending},
         {"ignored", lControl.mIgnored},
         {"expired", lControl.mExpired},
         {"events", lMessages.mSent},
         {"events-repeated", lMessages.mRepeated},
         {"events-acknowledged", lMessages.mAcknowledged},
         {"events-lost", lMessages.mLost},
         {"events-dropped", lMessages.mDropped},
         {"datagrams-dropped", aStatistics.mFaults.mDropped},
         {"datagrams-doubled", aStatistics.mFaults.mDoubled},
         {"datagrams-delayed", aStatistics.mFaults.mDelayed},
         {"datagrams-unheard", aStatistics.mUnheard},
         {"datagrams-late", aStatistics.mFaults.mLate}}};
    // Scripts take the line apart by the names, so these stay as they are.
    std::string lText = "statistics:";
    for (const auto& [lName, lNumber] : lNumbers)
    {
        lText += std::string(" ") + lName + '=' + std::to_string(lNumber);
    }
    return lText;
}

} // namespace KySerialCamera
