#include "kyserial/Device/DeviceName.h"

#include "kyserial/Text/Failure.h"
#include "kyserial/Text/TomlText.h"

// Its assertions are about texts that it refuses a step later; a file must not end a debug build.
#define TOML_ASSERT(aCondition) static_cast<void>(0)
#include <toml++/toml.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <set>

namespace KySerialTool
{

namespace
{

const char* const cNoDevice =
    "no device is given; use --device DEVICE, the environment variable KYSERIAL_DEVICE or the "
    "configuration file (--device sim is the simulated camera; 'kyserial devices' lists others)";

std::string Variable(const char* aName)
{
    const char* const lText = std::getenv(aName); // NOLINT(concurrency-mt-unsafe): no thread changes it
    return lText != nullptr ? lText : "";
}

/// The complaint about a place in the file.
UsageError Complaint(const std::string& aFile, const toml::source_region& aPlace, const std::string& aText)
{
    return UsageError(aFile + ":" + std::to_string(aPlace.begin.line) + ": " + aText);
}

std::string TextOf(const std::string& aFile, const std::string& aKey, const toml::node& aNode)
{
    const toml::value<std::string>* const lText = aNode.as_string();
    if (lText == nullptr || lText->get().empty())
    {
        throw Complaint(aFile, aNode.source(),
                        "\"" + aKey + "\" has to be a text such as \"gev://192.168.1.20\"");
    }
    return lText->get();
}

void ReadAliases(const std::string& aFile, const toml::node& aNode, DeviceConfiguration& aConfiguration)
{
    const toml::table* const lTable = aNode.as_table();
    if (lTable == nullptr)
    {
        throw Complaint(aFile, aNode.source(), "\"devices\" has to be a table of names and devices");
    }
    for (const auto& [lKey, lValue] : *lTable)
    {
        const std::string lName(lKey.str());
        aConfiguration.mAliases[lName] = TextOf(aFile, lName, lValue);
        // A command takes such a name for the device itself and never looks for the alias.
        if (IsDeviceText(lName))
        {
            throw Complaint(aFile, lValue.source(),
                            "\"" + lName + "\" is a device already and cannot be an alias");
        }
    }
}

} // namespace

std::string ConfigurationFile()
{
    namespace Files = std::filesystem;
    const std::string lOwn = Variable("XDG_CONFIG_HOME");
    const std::string lRoaming = Variable("APPDATA");
    const std::string lHome = Variable("HOME");
    // A folder that was named on purpose comes first, then that of Windows, then that of a home directory.
    const Files::path lFolder = !lOwn.empty()       ? Files::path(lOwn)
                                : !lRoaming.empty() ? Files::path(lRoaming)
                                : !lHome.empty()    ? Files::path(lHome) / ".config"
                                                    : Files::path();
    return lFolder.empty() ? std::string() : (lFolder / "kyserial" / "config.toml").string();
}

DeviceConfiguration ReadConfiguration(const std::string& aFile)
{
    DeviceConfiguration lConfiguration;
    std::error_code lIgnored; // a file that cannot be asked about is read, and refused then
    if (aFile.empty() ||
        std::filesystem::status(aFile, lIgnored).type() == std::filesystem::file_type::not_found)
    {
        return lConfiguration;
    }
    std::ifstream lFile(aFile, std::ios::binary); // one that cannot be read is refused below
    const std::string lText(std::istreambuf_iterator<char>(lFile), {});
    lFile.close();
    try
    {
        // The parser must not see a letter beyond ASCII outside of quotes, so it gets the text without such
        // letters first.
        static_cast<void>(toml::parse(WithoutForeignLetters(lText)));
        if (const auto lStray = FindStrayCharacter(lText))
        {
            throw UsageError(aFile + ":" + std::to_string(*lStray) + ": " + cStrayCharacter);
        }
        for (const auto& [lKey, lNode] : toml::parse_file(aFile))
        {
            if (lKey == "device")
            {
                lConfiguration.mDevice = TextOf(aFile, "device", lNode);
            }
            else if (lKey == "devices")
            {
                ReadAliases(aFile, lNode, lConfiguration);
            }
            else
            {
                throw Complaint(aFile, lNode.source(),
                                "\"" + std::string(lKey.str()) + "\" is no setting; use device or [devices]");
            }
        }
    }
    catch (const toml::parse_error& lError)
    {
        throw Complaint(aFile, lError.source(), std::string(lError.description()));
    }
    return lConfiguration;
}

std::string ChooseDevice(const std::string& aGiven)
{
    std::string lName = ConfiguredDevice(aGiven);
    if (lName.empty())
    {
        throw UsageError(cNoDevice);
    }
    return lName;
}

std::string ConfiguredDevice(const std::string& aGiven)
{
    std::string lName = !aGiven.empty() ? aGiven : Variable("KYSERIAL_DEVICE");
    if (IsDeviceText(lName))
    {
        return lName; // a broken configuration file is not in the way of a complete command
    }
    const DeviceConfiguration lConfiguration = ReadConfiguration(ConfigurationFile());
    if (lName.empty())
    {
        // The default of the file may itself be an alias.
        lName = lConfiguration.mDevice;
    }
    const auto lAlias = lConfiguration.mAliases.find(lName);
    return lAlias != lConfiguration.mAliases.end() ? lAlias->second : lName;
}

std::string CheckDeviceName(const std::string& aName)
{
    if (aName.empty())
    {
        return "the name is empty; use sim (the simulated camera), gev://ADDRESS or a camera's name";
    }
    // Any other word may be an alias, or a name that a device answers to, which is known only when it is looked for.
    return IsNetworkDevice(aName) ? CheckNetworkDevice(aName) : std::string();
}

bool IsDeviceText(const std::string& aName)
{
    return aName == "sim" || IsNetworkDevice(aName);
}

std::string MatchDevice(const std::string& aName, const std::vector<NetworkFinding>& aFindings)
{
    std::set<std::string> lDevices; // a device that several interfaces reach is one
    for (const NetworkFinding& lFinding : aFindings)
    {
        if (IsNameOf(aName, lFinding))
        {
            lDevices.insert(lFinding.mDevice);
        }
    }
    if (lDevices.empty())
    {
        throw OperationError("no device answers to \"" + aName +
                             "\" (MAC address, serial number, user name, model or "
                             "IPv4 address); 'kyserial devices' lists those that answer");
    }
    if (lDevices.size() > 1)
    {
        std::string lText = "several devices answer to \"" + aName + "\":";
        for (const std::string& lDevice : lDevices)
        {
            lText += ' ' + lDevice;
        }
        throw OperationError(lText);
    }
    return *lDevices.begin();
}

} // namespace KySerialTool
