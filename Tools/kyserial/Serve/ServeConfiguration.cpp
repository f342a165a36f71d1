#include "kyserial/Serve/ServeConfiguration.h"

#include "kyserial/Device/DeviceName.h"
#include "kyserial/Device/PortName.h"
#include "kyserial/Text/Hex.h"
#include "kyserial/Text/TomlText.h"

// Its assertions are about texts that it refuses a step later; a file must not end a debug build.
#define TOML_ASSERT(aCondition) static_cast<void>(0)
#include <toml++/toml.h>

#include <algorithm>
#include <cerrno>
#include <fstream>
#include <functional>
#include <initializer_list>
#include <map>
#include <optional>
#include <system_error>
#include <utility>

namespace KySerialTool
{

namespace
{

constexpr size_t cLargestFile = 1U << 20;
constexpr uint64_t cSmallestLog = 64U << 10;
constexpr uint64_t cLargestLog = 1U << 30;
constexpr uint32_t cLongestIdle = 86400; // seconds

/// Reads the keys of one table, and collects what is wrong.
class TableReader
{
public:
    using Faults = std::vector<ConfigurationFault>;
    using Take =
        std::function<std::string(const toml::node&)>; // what is wrong with the value; empty: nothing

    TableReader(const toml::table& aTable, std::string aPlace, Faults& aFaults)
        : mTable(aTable), mPlace(std::move(aPlace)), mFaults(aFaults)
    {
    }

    /// Names a key and what takes its value.
    void Key(const std::string& aName, Take aTake) { mKeys.emplace_back(aName, std::move(aTake)); }

    void Text(const std::string& aName, std::function<std::string(const std::string&)> aTake)
    {
        Key(aName,
            [lTake = std::move(aTake)](const toml::node& aNode)
            {
                const auto* const lText = aNode.as_string();
                return lText != nullptr ? lTake(lText->get()) : std::string("use a text in quotes");
            });
    }

    void Number(const std::string& aName, uint32_t aMaximum, uint32_t& aValue)
    {
        Key(aName,
            [aMaximum, &aValue](const toml::node& aNode)
            {
                const auto* const lNumber = aNode.as_integer();
                const bool lFits = lNumber != nullptr && lNumber->get() >= 0 && lNumber->get() <= aMaximum;
                aValue = lFits ? static_cast<uint32_t>(lNumber->get()) : aValue;
                return lFits ? std::string() : "use a number from 0 to " + std::to_string(aMaximum);
            });
    }

    void Choice(const std::string& aName, std::initializer_list<uint32_t> aChoices,
                std::optional<uint32_t>& aValue)
    {
        const std::vector<uint32_t> lChoices(aChoices);
        Key(aName,
            [lChoices, &aValue](const toml::node& aNode) -> std::string
            {
                const auto* const lNumber = aNode.as_integer();
                for (const uint32_t lChoice : lChoices)
                {
                    if (lNumber != nullptr && lNumber->get() == lChoice)
                    {
                        aValue = lChoice;
                        return {};
                    }
                }
                std::string lText = "use";
                for (const uint32_t lChoice : lChoices)
                {
                    lText += (lChoice == lChoices.front()  ? " "
                              : lChoice == lChoices.back() ? " or "
                                                           : ", ") +
                             std::to_string(lChoice);
                }
                return lText;
            });
    }

    void Flag(const std::string& aName, bool& aValue)
    {
        Key(aName,
            [&aValue](const toml::node& aNode)
            {
                const auto* const lFlag = aNode.as_boolean();
                aValue = lFlag != nullptr ? lFlag->get() : aValue;
                return lFlag != nullptr ? std::string() : std::string("use true or false");
            });
    }

    /// Looks at every key of the table.
    void Read()
    {
        for (const auto& [lKey, lNode] : mTable)
        {
            const std::string lName(lKey.str());
            // An unknown key is a fault: a misspelt setting would otherwise count for nothing, without a word.
            const auto lKnown = std::find_if(mKeys.begin(), mKeys.end(),
                                             [&](const auto& aKey) { return aKey.first == lName; });
            const std::string lWrong = lKnown != mKeys.end()
                                           ? lKnown->second(lNode)
                                           : "there is no such key " + mPlace + "; use " + Names();
            if (!lWrong.empty())
            {
                mFaults.push_back({lKey.source().begin.line, std::string(lName).append(": ").append(lWrong)});
            }
        }
    }

    bool Has(const char* aName) const { return mTable.contains(aName); }

private:
    std::string Names() const
    {
        std::string lNames;
        for (const auto& [lName, lTake] : mKeys)
        {
            lNames += (lNames.empty() ? "" : lName == mKeys.back().first ? " or " : ", ") + lName;
        }
        return lNames;
    }

    const toml::table& mTable;
    const std::string mPlace;
    Faults& mFaults;
    std::vector<std::pair<std::string, Take>> mKeys{};
};

std::string TakeParity(const std::string& aText, std::optional<KyParity>& aParity)
{
    const std::map<std::string, KyParity> lParities = {
        {"none", KyParityNone}, {"even", KyParityEven}, {"odd", KyParityOdd}};
    const auto lParity = lParities.find(aText);
    if (lParity == lParities.end())
    {
        return "use \"none\", \"even\" or \"odd\"";
    }
    aParity = lParity->second;
    return {};
}

std::string TakeClients(const toml::node& aNode, TcpClients& aClients)
{
    const auto* const lNumber = aNode.as_integer();
    const auto* const lText = aNode.as_string();
    if (lNumber != nullptr && lNumber->get() == 1)
    {
        aClients = TcpClients::One;
    }
    else if (lText != nullptr && lText->get() == "shared")
    {
        aClients = TcpClients::Shared;
    }
    else if (lText != nullptr && lText->get() == "read-only")
    {
        aClients = TcpClients::ReadOnly;
    }
    else
    {
        return "use 1, \"shared\" or \"read-only\"";
    }
    return {};
}

/// Whether a header of HTTP carries it, and it takes too long to guess.
bool IsToken(const std::string& aText)
{
    return aText.size() >= 16 && aText.size() <= 256 &&
           std::all_of(aText.begin(), aText.end(),
                       [](char aCharacter) { return aCharacter > ' ' && aCharacter <= '~'; });
}

std::string TakePort(const std::string& aText, KyDeviceSerial& aPort)
{
    aPort = ParsePortName(aText).value_or(KyDeviceSerialInvalid);
    return aPort == KyDeviceSerialInvalid ? "\"" + aText + "\" is no port; use uart0, uart1 or bulk0 to bulk7"
                                          : std::string();
}

/// Names the keys of a file that is set aside when it has become large.
void AddLogKeys(TableReader& aReader, std::string& aFile, RotatingFile::Limit& aLimit)
{
    aReader.Text("log",
                 [&](const std::string& aText)
                 {
                     aFile = aText;
                     return aText.empty() ? std::string("use the name of a file") : std::string();
                 });
    aReader.Text("log_size",
                 [&](const std::string& aText)
                 {
                     const auto lSize = ParseSize(aText, cLargestLog);
                     aLimit.mBytes = lSize.value_or(0);
                     return lSize.value_or(0) >= cSmallestLog ? std::string()
                                                              : std::string("use \"64KiB\" to \"1024MiB\"");
                 });
    aReader.Number("log_files", 1000, aLimit.mFiles);
}

void CheckLogKeys(const TableReader& aTable, const std::function<void(const std::string&)>& aAdd)
{
    if (aTable.Has("log_size") && !aTable.Has("log"))
    {
        aAdd("log_size: belongs to log; name a file");
    }
    if (aTable.Has("log_files") && !aTable.Has("log_size"))
    {
        aAdd("log_files: belongs to log_size; give it a size");
    }
}

std::string TakeLevel(const std::string& aText, std::optional<LogLevel>& aLevel)
{
    aLevel = aText == "error"         ? std::optional(LogLevel::Error)
             : aText == "warning"     ? std::optional(LogLevel::Warning)
             : aText == "information" ? std::optional(LogLevel::Information)
                                      : std::nullopt;
    return aLevel.has_value() ? std::string() : std::string("use \"error\", \"warning\" or \"information\"");
}

/// What keys of a port do not go together.
void CheckPort(const TableReader& aTable, const ServedPortEntry& aPort,
               std::vector<ConfigurationFault>& aFaults)
{
    const HostKind lKind = aPort.mBridge.mHost.mKind;
    const auto lAdd = [&](const std::string& aText) { aFaults.push_back({aPort.mLine, aText}); };
    if (!aTable.Has("port"))
    {
        lAdd("port: a port needs one, such as port = \"uart0\"");
    }
    if (!aTable.Has("host"))
    {
        lAdd("host: a port needs a host side, such as host = \"tcp://:4001\"");
    }
    CheckLogKeys(aTable, lAdd);
    // A host side that is missing or wrong has its own fault, and what belongs to it is not known then.
    for (const char* const lKey : {"clients", "idle"})
    {
        if (aTable.Has(lKey) && lKind != HostKind::None && !IsTcp(lKind))
        {
            lAdd(std::string(lKey) + ": belongs to tcp:// and rfc2217:// only; leave it out");
        }
    }
    if (aPort.mTerminal && lKind != HostKind::None && !IsTcp(lKind))
    {
        lAdd("terminal: belongs to tcp:// and rfc2217:// only; leave it out");
    }
    const LineSelection& lLine = aPort.mBridge.mLine;
    const uint32_t lRate = lLine.mBaudRate.value_or(9600);
    if (lKind == HostKind::Clser && (lLine.mParity.has_value() || lLine.mBits.has_value() ||
                                     lLine.mStopBits.has_value() || lRate == 14400 || lRate == 28800))
    {
        lAdd("host: Camera Link is 8N1 with 9600, 19200, 38400, 57600 or 115200 bit/s; leave out what "
             "differs");
    }
    if ((IsTcp(lKind) || lKind == HostKind::Pty) && lLine.mBits.value_or(8) != 8)
    {
        lAdd("bits: belongs to tty: and com: only; leave it out");
    }
}

ServedPortEntry ReadPort(const toml::table& aTable, std::vector<ConfigurationFault>& aFaults)
{
    ServedPortEntry lPort;
    lPort.mLine = aTable.source().begin.line;
    // A service outlives the absences of its devices; its host sides stay open meanwhile.
    lPort.mBridge.mReconnect = true;
    LineSelection& lLine = lPort.mBridge.mLine;
    HostSelection& lHost = lPort.mBridge.mHost;
    TcpClients lClients = TcpClients::One;
    uint32_t lIdle = 0;
    TableReader lReader(aTable, "of a port", aFaults);
    lReader.Text("port", [&](const std::string& aText) { return TakePort(aText, lPort.mBridge.mPort); });
    lReader.Text("host", [&](const std::string& aText) { return ParseHost(aText, lHost); });
    lReader.Choice("baud", {9600, 14400, 19200, 28800, 38400, 57600, 115200}, lLine.mBaudRate);
    lReader.Text("parity", [&](const std::string& aText) { return TakeParity(aText, lLine.mParity); });
    lReader.Choice("bits", {7, 8}, lLine.mBits);
    lReader.Choice("stop", {1, 2}, lLine.mStopBits);
    lReader.Key("clients", [&](const toml::node& aNode) { return TakeClients(aNode, lClients); });
    lReader.Number("idle", cLongestIdle, lIdle);
    lReader.Flag("terminal", lPort.mTerminal);
    AddLogKeys(lReader, lPort.mBridge.mLogFile, lPort.mBridge.mLogLimit);
    lReader.Read();
    // Only now: the key "host" sets the whole selection anew, and the keys come in any order.
    lHost.mTcp.mClients = lClients;
    lHost.mTcp.mIdle = lIdle;
    CheckPort(lReader, lPort, aFaults);
    return lPort;
}

/// Calls aTake for each table of "[[aName]]".
std::string ForEachTable(const toml::node& aNode, const char* aName,
                         const std::function<void(const toml::table&)>& aTake)
{
    const toml::array* const lArray = aNode.as_array();
    std::string lRight = std::string("use [[") + aName + "]] for each";
    if (lArray == nullptr)
    {
        return lRight;
    }
    for (const toml::node& lNode : *lArray)
    {
        if (!lNode.is_table())
        {
            return lRight;
        }
        aTake(*lNode.as_table());
    }
    return {};
}

ServedDeviceEntry ReadDevice(const toml::table& aTable, std::vector<ConfigurationFault>& aFaults)
{
    ServedDeviceEntry lDevice;
    lDevice.mLine = aTable.source().begin.line;
    TableReader lReader(aTable, "of a device", aFaults);
    lReader.Text("name",
                 [&](const std::string& aText)
                 {
                     lDevice.mName = aText;
                     return aText.empty() ? std::string("an empty name does not do") : std::string();
                 });
    lReader.Text("device",
                 [&](const std::string& aText)
                 {
                     lDevice.mDevice = aText;
                     return CheckDeviceName(aText);
                 });
    lReader.Text("level", [&](const std::string& aText) { return TakeLevel(aText, lDevice.mLevel); });
    lReader.Flag("sim_fast", lDevice.mSimulator.mFast);
    lReader.Number("sim_cut", UINT32_MAX, lDevice.mSimulator.mCutAfter);
    lReader.Number("sim_back", 3600000, lDevice.mSimulator.mBackAfter);
    lReader.Key("port",
                [&](const toml::node& aNode)
                {
                    return ForEachTable(aNode, "device.port",
                                        [&](const toml::table& aPort)
                                        { lDevice.mPorts.push_back(ReadPort(aPort, aFaults)); });
                });
    lReader.Read();
    if (!lReader.Has("device"))
    {
        aFaults.push_back(
            {lDevice.mLine, "device: a device needs one, such as device = \"gev://192.168.1.20\""});
    }
    if (lDevice.mPorts.empty() && !lReader.Has("port"))
    {
        aFaults.push_back({lDevice.mLine, "port: a device needs one port at least; use [[device.port]]"});
    }
    lDevice.mName = lDevice.mName.empty() ? lDevice.mDevice : lDevice.mName;
    return lDevice;
}

/// Finds what may be there once only.
class Uniqueness
{
public:
    explicit Uniqueness(std::vector<ConfigurationFault>& aFaults) : mFaults(aFaults) {}

    void Add(const std::string& aKey, uint32_t aLine, const std::string& aWhat)
    {
        const auto [lPlace, lIsNew] = mLines.emplace(aKey, aLine);
        if (!lIsNew)
        {
            mFaults.push_back({aLine, aWhat + " is in line " + std::to_string(lPlace->second) +
                                          " already; use another, or leave one out"});
        }
    }

private:
    std::vector<ConfigurationFault>& mFaults;
    std::map<std::string, uint32_t> mLines{};
};

/// What two host sides would have in common if they cannot both be; empty: nothing.
std::string PlaceOf(const HostSelection& aHost)
{
    if (!IsTcp(aHost.mKind))
    {
        return aHost.mName;
    }
    // Any free port is another one each time.
    return aHost.mTcp.mPort == 0 ? std::string()
                                 : aHost.mTcp.mAddress + ' ' + std::to_string(aHost.mTcp.mPort);
}

void CheckWhole(const ServeConfiguration& aConfiguration, std::vector<ConfigurationFault>& aFaults)
{
    Uniqueness lUnique(aFaults);
    if (aConfiguration.mWeb.has_value() && aConfiguration.mWeb->mPort != 0)
    {
        lUnique.Add("host " + PlaceOf({HostKind::Tcp, "", *aConfiguration.mWeb}), aConfiguration.mWebLine,
                    "web");
    }
    if (!aConfiguration.mLog.mFile.empty())
    {
        lUnique.Add("log " + aConfiguration.mLog.mFile, aConfiguration.mLogLine, "log");
    }
    for (const ServedDeviceEntry& lDevice : aConfiguration.mDevices)
    {
        lUnique.Add("name " + lDevice.mName, lDevice.mLine, "name: \"" + lDevice.mName + '"');
        if (lDevice.mDevice != "sim" && !lDevice.mDevice.empty()) // each "sim" is a camera of its own
        {
            lUnique.Add("device " + lDevice.mDevice, lDevice.mLine, "device: \"" + lDevice.mDevice + '"');
        }
        Uniqueness lPorts(aFaults);
        for (const ServedPortEntry& lPort : lDevice.mPorts)
        {
            if (lPort.mBridge.mPort != KyDeviceSerialInvalid)
            {
                const std::string lName = PortName(lPort.mBridge.mPort);
                lPorts.Add(lName, lPort.mLine, "port: " + lName + " of this device");
            }
            if (!lPort.mBridge.mLogFile.empty()) // two ports would write into each other's lines
            {
                lUnique.Add("log " + lPort.mBridge.mLogFile, lPort.mLine,
                            "log: \"" + lPort.mBridge.mLogFile + '"');
            }
            const std::string lPlace = PlaceOf(lPort.mBridge.mHost);
            if (lPort.mTerminal && aConfiguration.mWebToken.empty())
            {
                aFaults.push_back(
                    {lPort.mLine, "terminal: the service needs a web_token, which whoever sends bytes has to "
                                  "know; give it one of 16 characters or more"});
            }
            if (!lPlace.empty())
            {
                lUnique.Add("host " + lPlace, lPort.mLine, "host: \"" + lPort.mBridge.mHost.mName + '"');
            }
        }
    }
}

} // namespace

bool ServedPortEntry::IsSame(const ServedPortEntry& aOther) const
{
    const LineSelection& lLine = mBridge.mLine;
    const LineSelection& lOther = aOther.mBridge.mLine;
    // Not the line of the file: an entry that has only moved is the same one, and its clients stay.
    return mTerminal == aOther.mTerminal && mBridge.mPort == aOther.mBridge.mPort &&
           mBridge.mHost == aOther.mBridge.mHost && mBridge.mLogFile == aOther.mBridge.mLogFile &&
           mBridge.mLogLimit == aOther.mBridge.mLogLimit && lLine.mBaudRate == lOther.mBaudRate &&
           lLine.mParity == lOther.mParity && lLine.mBits == lOther.mBits &&
           lLine.mStopBits == lOther.mStopBits;
}

bool ServedDeviceEntry::IsSame(const ServedDeviceEntry& aOther) const
{
    // Not the ports and the level: Update() changes those while the device stays connected.
    return mName == aOther.mName && mDevice == aOther.mDevice &&
           mSimulator.mFast == aOther.mSimulator.mFast &&
           mSimulator.mCutAfter == aOther.mSimulator.mCutAfter &&
           mSimulator.mBackAfter == aOther.mSimulator.mBackAfter;
}

ServeConfiguration ParseServeConfiguration(const std::string& aText, std::vector<ConfigurationFault>& aFaults)
{
    ServeConfiguration lConfiguration;
    aFaults.clear();
    try
    {
        // The parser must not see a letter beyond ASCII outside of quotes, so it gets the text without such
        // letters first.
        static_cast<void>(toml::parse(WithoutForeignLetters(aText)));
        if (const auto lStray = FindStrayCharacter(aText))
        {
            aFaults.push_back({*lStray, cStrayCharacter});
            return lConfiguration;
        }
        const toml::table lTable = toml::parse(aText);
        TableReader lReader(lTable, "of the service", aFaults);
        lReader.Text("name",
                     [&](const std::string& aName)
                     {
                         // The name becomes part of the name of a system's event, which takes not every
                         // character.
                         lConfiguration.mName = aName;
                         const bool lIsGood =
                             !aName.empty() && aName.size() <= 64 &&
                             aName.find_first_not_of("abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRST"
                                                     "UVWXYZ0123456789-_") == std::string::npos;
                         return lIsGood ? std::string() : std::string("use 1 to 64 letters, digits, - and _");
                     });
        lReader.Text("web",
                     [&](const std::string& aPlace)
                     {
                         HostSelection lPlace;
                         std::string lWrong = TakeHostName(HostKind::Tcp, aPlace, lPlace);
                         lConfiguration.mWeb = lPlace.mTcp;
                         lConfiguration.mWebLine = lTable.get("web")->source().begin.line;
                         return lWrong;
                     });
        lReader.Text("web_token",
                     [&](const std::string& aToken)
                     {
                         lConfiguration.mWebToken = aToken;
                         return IsToken(aToken)
                                    ? std::string()
                                    : std::string("use 16 to 256 printable ASCII characters without spaces");
                     });
        std::optional<LogLevel> lLevel;
        AddLogKeys(lReader, lConfiguration.mLog.mFile, lConfiguration.mLog.mLimit);
        lReader.Text("level", [&](const std::string& aText) { return TakeLevel(aText, lLevel); });
        lReader.Key("device",
                    [&](const toml::node& aNode)
                    {
                        return ForEachTable(
                            aNode, "device",
                            [&](const toml::table& aDevice)
                            { lConfiguration.mDevices.push_back(ReadDevice(aDevice, aFaults)); });
                    });
        lReader.Read();
        lConfiguration.mLog.mLevel = lLevel.value_or(lConfiguration.mLog.mLevel);
        for (const char* const lKey :
             {"log_files", "log_size", "log"}) // the last that is there names the line
        {
            lConfiguration.mLogLine =
                lReader.Has(lKey) ? lTable.get(lKey)->source().begin.line : lConfiguration.mLogLine;
        }
        CheckLogKeys(lReader,
                     [&](const std::string& aFault) {
                         aFaults.push_back({lConfiguration.mLogLine, aFault});
                     });
        if (!lReader.Has("device"))
        {
            aFaults.push_back({0, "there is no device; use [[device]]"});
        }
        CheckWhole(lConfiguration, aFaults);
    }
    catch (const toml::parse_error& lError) // the rest of the file cannot be read then
    {
        aFaults.push_back({lError.source().begin.line, std::string(lError.description())});
    }
    // In the order of the file, in which its author goes through them.
    std::stable_sort(aFaults.begin(), aFaults.end(),
                     [](const ConfigurationFault& aOne, const ConfigurationFault& aOther)
                     { return aOne.mLine < aOther.mLine; });
    return lConfiguration;
}

std::string FaultText(const std::string& aFile, const ConfigurationFault& aFault)
{
    const std::string lLine = aFault.mLine != 0 ? ':' + std::to_string(aFault.mLine) : std::string();
    return aFile + lLine + ": " + aFault.mText;
}

ServeConfiguration LoadServeConfiguration(const std::string& aFile, std::vector<ConfigurationFault>& aFaults)
{
    errno = 0;
    std::ifstream lFile(aFile, std::ios::binary);
    const int lError = errno;
    // One byte more than is allowed shows that the file is too large. A device file without an end is not
    // read for ever.
    std::string lText(cLargestFile + 1, '\0');
    lFile.read(lText.data(), static_cast<std::streamsize>(lText.size()));
    const auto lRead = static_cast<size_t>(std::max<std::streamsize>(lFile.gcount(), 0));
    if (!lFile.eof() || lRead > cLargestFile)
    {
        aFaults = {{0, lFile.is_open() ? "cannot be read, or has more than 1 MiB"
                                       : "cannot be opened: " + std::generic_category().message(lError)}};
        return {};
    }
    lText.resize(lRead);
    return ParseServeConfiguration(lText, aFaults);
}

} // namespace KySerialTool
