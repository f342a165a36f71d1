#include "kyserial/Commands/Commands.h"

#include "kyserial/Text/Failure.h"
#include "kyserial/Text/Output.h"

#include "kyserial/Text/Json.h"

#include <CLI/CLI.hpp>

#include <cstdio>
#include <memory>

namespace KySerialTool
{

namespace
{

constexpr int64_t cLongestRegister = 65536;

struct FeaturesOptions
{
    bool mJson = false;
    std::string mName;
    std::string mValue;
};

std::string TextOf(const KyString& aText)
{
    return {aText.GetAscii(), aText.GetLength()};
}

KyString ToKyString(const std::string& aText)
{
    return {aText.c_str(), aText.size()};
}

/// A register's bytes as hexadecimal digits.
std::string RegisterText(IKyDeviceAdapter& aAdapter, const KyString& aName)
{
    int64_t lLength = 0;
    const std::string lWhat = "cannot read " + TextOf(aName);
    Check(aAdapter.GetRegisterLength(aName, lLength), lWhat);
    // The length comes from the device, and memory of that size is taken.
    if (lLength < 0 || lLength > cLongestRegister)
    {
        throw OperationError(lWhat + ": it is longer than " + std::to_string(cLongestRegister) + " bytes");
    }
    std::vector<uint8_t> lBytes(static_cast<size_t>(lLength));
    Check(aAdapter.GetRegisterData(aName, lBytes.data(), lLength), lWhat);
    std::string lText;
    for (const uint8_t lByte : lBytes)
    {
        char lDigits[3];
        std::snprintf(lDigits, sizeof(lDigits), "%02X", static_cast<unsigned>(lByte));
        lText += lDigits;
    }
    return lText;
}

ExitCode RunList(Context& aContext, const FeaturesOptions& aOptions)
{
    const std::unique_ptr<Device> lDevice = OpenDevice(aContext, DeviceAccess::Read);
    const uint64_t lGeneration = lDevice->GetGeneration();
    const std::vector<FeatureFinding> lFindings = lDevice->ReadFeatures();
    // A connection that was lost in between leaves values empty, which would look like features without a value.
    CheckConnection(*lDevice, lGeneration);
    Print(aContext, aOptions.mJson ? FeaturesJson(aContext.mCommon.mDevice.mName, lFindings)
                                   : FeaturesTable(lFindings));
    return ExitCode::Ok;
}

ExitCode RunGet(Context& aContext, const FeaturesOptions& aOptions)
{
    const std::unique_ptr<Device> lDevice = OpenDevice(aContext, DeviceAccess::Read);
    IKyDeviceAdapter& lAdapter = lDevice->GetAdapter();
    const KyString lName = ToKyString(aOptions.mName);
    std::string lText;
    // Registers have no text form of their own. Everything else has, commands left out.
    if (lAdapter.IsRegisterFeatureAvailable(lName))
    {
        lText = RegisterText(lAdapter, lName);
    }
    else
    {
        KyString lValue;
        Check(lAdapter.GetFeatureAsString(lName, lValue), "cannot read " + aOptions.mName);
        lText = TextOf(lValue);
    }
    Print(aContext, aOptions.mJson ? JsonLine({{"device", aContext.mCommon.mDevice.mName},
                                               {"name", aOptions.mName},
                                               {"value", lText}})
                                   : lText + '\n');
    return ExitCode::Ok;
}

ExitCode RunSet(Context& aContext, const FeaturesOptions& aOptions)
{
    // Only a write needs control of the device. Reads leave it to the application that has it.
    const std::unique_ptr<Device> lDevice = OpenDevice(aContext);
    Check(lDevice->GetAdapter().SetFeatureFromString(ToKyString(aOptions.mName), ToKyString(aOptions.mValue)),
          "cannot set " + aOptions.mName);
    return ExitCode::Ok;
}

/// A subcommand that runs aRun.
CLI::App& Add(CLI::App& aCommand, Context& aContext, const char* aName, const char* aText,
              const char* aExample, const std::shared_ptr<FeaturesOptions>& aOptions,
              ExitCode (*aRun)(Context&, const FeaturesOptions&))
{
    CLI::App& lCommand = *aCommand.add_subcommand(aName, aText);
    AddCommonOptions(lCommand, aContext.mCommon);
    lCommand.footer(aExample);
    lCommand.callback(
        [&aContext, aOptions, aRun]
        { aContext.mAction = [aOptions, aRun](Context& aRunning) { return aRun(aRunning, *aOptions); }; });
    return lCommand;
}

} // namespace

void AddFeaturesCommand(CLI::App& aProgram, Context& aContext)
{
    CLI::App& lCommand =
        *aProgram.add_subcommand("features", "List, read and set the device's GenICam features");
    lCommand.footer("Example:\n  kyserial features list --device sim");
    const auto lOptions = std::make_shared<FeaturesOptions>();
    Add(lCommand, aContext, "list", "List all features", "Example:\n  kyserial features list --device sim",
        lOptions, RunList)
        .add_flag("--json", lOptions->mJson, "One JSON object in one line instead of a table");
    CLI::App& lGet = Add(lCommand, aContext, "get", "Print a feature's value; a register's in hexadecimal",
                         "Example:\n  kyserial features get BulkMode --device sim", lOptions, RunGet);
    lGet.add_flag("--json", lOptions->mJson, "One JSON object in one line");
    lGet.add_option("name", lOptions->mName, "Name of the feature")->type_name("NAME")->required();
    CLI::App& lSet =
        Add(lCommand, aContext, "set", "Set a feature; a command is executed by the value 1",
            "Example:\n  kyserial features set BulkMode SPI --device gev://192.168.1.20", lOptions, RunSet);
    lSet.add_option("name", lOptions->mName, "Name of the feature")->type_name("NAME")->required();
    lSet.add_option("value", lOptions->mValue, "Decimal number, entry name, true, false, or text")
        ->type_name("VALUE")
        ->required();
}

std::string FeaturesTable(const std::vector<FeatureFinding>& aFindings)
{
    Table lTable({"FEATURE", "KIND", "ACCESS", "VALUE"});
    for (const FeatureFinding& lFinding : aFindings)
    {
        lTable.Add({lFinding.mFeature.mName, lFinding.mFeature.mKind, lFinding.mAccess,
                    lFinding.mValue.empty() ? "-" : lFinding.mValue});
    }
    return lTable.Text();
}

std::string FeaturesJson(const std::string& aDevice, const std::vector<FeatureFinding>& aFindings)
{
    nlohmann::ordered_json lFeatures = nlohmann::ordered_json::array();
    for (const FeatureFinding& lFinding : aFindings)
    {
        nlohmann::ordered_json lFeature = {{"name", lFinding.mFeature.mName},
                                           {"kind", lFinding.mFeature.mKind},
                                           {"category", lFinding.mFeature.mCategory},
                                           {"visibility", lFinding.mFeature.mVisibility},
                                           {"toolTip", lFinding.mFeature.mToolTip},
                                           {"access", lFinding.mAccess},
                                           {"value", lFinding.mValue}};
        // Other kinds have no list at all, which differs from an empty one.
        if (lFinding.mFeature.mKind == "Enumeration")
        {
            lFeature["entries"] = lFinding.mEntries;
        }
        lFeatures.push_back(std::move(lFeature));
    }
    return JsonLine({{"device", aDevice}, {"features", lFeatures}});
}

} // namespace KySerialTool
