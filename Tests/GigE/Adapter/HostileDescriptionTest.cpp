// Cameras whose descriptions are made to cost as much as possible. Each is connected and used; what that takes of memory and of
// the processor is measured. Both ends are in the test's process: the camera's part counts too, but for the description that
// it holds.

#include "GenApi/MapFixture.h"
#include "Support/AllocationCounter.h"
#include "Support/ProcessorTime.h"
#include "Support/RecordingLogSink.h"

#include <KyGigE/GigEDeviceAdapter.h>
#include <Simulator/Camera/CameraModel.h>
#include <Simulator/Network/NetworkCamera.h>

#include <functional>

namespace
{

using KyGigE::GigEDeviceAdapter;
using KyTest::Element;
using KyTest::NodeXml;

constexpr size_t cTarget = 8'300'000; // a little less than the longest text that is read

std::string Repeated(size_t aCount, const std::function<std::string(size_t)>& aPart)
{
    std::string lText;
    for (size_t lIndex = 0; lIndex < aCount && lText.size() < cTarget; ++lIndex)
    {
        lText += aPart(lIndex);
    }
    return lText;
}

std::string N(size_t aIndex)
{
    return "N" + std::to_string(aIndex);
}

std::string MakeElements()
{
    return KyTest::Description(Repeated(SIZE_MAX, [](size_t) { return "<a/>"; }));
}

std::string MakeProperties()
{
    return KyTest::Description(NodeXml(
        "Integer", "N0", Repeated(249'000, [](size_t) { return "<pInvalidator>N0</pInvalidator>"; })));
}

std::string MakeNodes()
{
    return KyTest::Description(
        Repeated(99'000, [](size_t aIndex)
                 { return NodeXml("Integer", N(aIndex), Element("pValue", N(aIndex + 1))); }));
}

std::string MakeAttributes()
{
    return KyTest::Description(Repeated(
        20, [](size_t) { return "<a " + Repeated(12'000, [](size_t) { return "a=\"\" "; }) + "/>"; }));
}

std::string MakeStructure()
{
    return KyTest::Description(
        "<StructReg>" + Repeated(630, [](size_t) { return "<pInvalidator>E0</pInvalidator>"; }) +
        Repeated(
            630, [](size_t aIndex)
            { return "<StructEntry Name=\"E" + std::to_string(aIndex) + "\"><Bit>0</Bit></StructEntry>"; }) +
        "</StructReg>");
}

std::string MakeEntries()
{
    return KyTest::Description(
        "<StructReg>" +
        Repeated(95'000, [](size_t aIndex) { return NodeXml("StructEntry", N(aIndex), "<Bit>0</Bit>"); }) +
        "</StructReg>");
}

std::string MakeInvalidators()
{
    const std::string lAll = Repeated(450, [](size_t aIndex) { return Element("pInvalidator", N(aIndex)); });
    return KyTest::Description(Repeated(
        450, [&](size_t aIndex)
        { return NodeXml("Integer", N(aIndex), lAll + "<Value>1</Value><PollingTime>1</PollingTime>"); }));
}

std::string MakeSharedTexts()
{
    const std::string lText(2'000'000, 'x');
    return KyTest::Description(
        NodeXml("Category", "Root", Element("pFeature", lText)) +
        NodeXml("Category", lText,
                Repeated(9'000, [](size_t aIndex) { return Element("pFeature", N(aIndex)); })) +
        "<StructReg>" + Element("ToolTip", lText) +
        Repeated(9'000, [](size_t aIndex) { return NodeXml("StructEntry", N(aIndex), "<Bit>0</Bit>"); }) +
        "</StructReg>");
}

std::string MakeEvents()
{
    std::string lVariables;
    return KyTest::Description(Repeated(9'000,
                                        [&](size_t aIndex)
                                        {
                                            const std::string lPort = "P" + std::to_string(aIndex);
                                            lVariables += "<pVariable Name=\"A\">R" + lPort + "</pVariable>";
                                            return NodeXml("Port", lPort,
                                                           Element("EventID", std::to_string(aIndex + 1))) +
                                                   KyTest::IntReg("R" + lPort, "0", "RO", "", lPort);
                                        }) +
                               NodeXml("IntSwissKnife", "Knife", lVariables + "<Formula>A</Formula>") +
                               Repeated(20'000, [](size_t aIndex)
                                        { return NodeXml("Integer", N(aIndex), "<pValue>Knife</pValue>"); }));
}

std::string MakeText()
{
    return KyTest::Description(NodeXml("String", "N0", Element("Value", std::string(cTarget - 1000, 'x'))));
}

std::string MakeFormula()
{
    return KyTest::Description(NodeXml(
        "IntSwissKnife", "N0", Element("Formula", Repeated(SIZE_MAX, [](size_t) { return "1+"; }) + "1")));
}

std::string MakeBlanks()
{
    // NOLINTNEXTLINE(bugprone-string-constructor): no mistake; a tenth of a megabyte as an archive
    return std::string(100'000'000, ' ');
}

struct Case
{
    const char* mName;
    std::string (*mMake)();
    const char* mProblem = ""; ///< Why it has no features.
    bool mZipped = false;
};

class HostileDescriptionTest : public testing::TestWithParam<Case>
{
protected:
    /// Does something with the camera that must not take long. The processor's time: what the machine does for others is
    /// no part of it.
    static void Do(const char* aWhat, const std::function<void()>& aAction)
    {
        const uint64_t lBegin = KyTest::GetProcessorTime();
        aAction();
        EXPECT_LT(KyTest::GetProcessorTime() - lBegin, 5000 * KyTest::cCheckingCosts) << aWhat;
    }

    KyTest::RecordingLogSink mLog;
};

TEST_P(HostileDescriptionTest, ConnectingAndUsingItTakesNoTimeAndLittleMemory)
{
    KySimulator::NetworkForms lForms;
    lForms.mDescription = GetParam().mMake();
    lForms.mZippedDescription = GetParam().mZipped;
    KySimulator::NetworkCamera lCamera(
        std::make_shared<KySimulator::CameraModel>(KySimulator::CameraConfiguration()),
        KySimulator::NetworkPlace{{0x7F000001, 0}, false}, lForms);
    ASSERT_TRUE(lCamera.Start()) << lCamera.GetError();
    const int64_t lBefore = KyTest::GetAllocatedBytes();
    KyTest::ForgetMostBytes();
    std::unique_ptr<GigEDeviceAdapter> lAdapter;
    const KyGigE::DeviceAddress lAddress{"127.0.0.1", lCamera.GetEndpoint().mPort, ""};
    KyGigE::ConnectionOptions lOptions;
    lOptions.mConnectLimit = 150'000; // Wine on a busy machine reads eight megabytes in more than 30 s
    // A camera that a busy machine lets answer late is not lost: the next connection would hold a second description.
    lOptions.mControl.mTimeout = 10'000;
    lOptions.mHeartbeatTimeout = 600'000;
    Do("Connect",
       [&] { EXPECT_THAT(GigEDeviceAdapter::Connect(lAddress, lOptions, lAdapter), KyTest::IsOK()); });
    ASSERT_NE(lAdapter, nullptr);
    const auto lLines = mLog.Take();
    EXPECT_THAT(lLines.empty() ? "" : lLines[0].mMessage, testing::HasSubstr(GetParam().mProblem));
    Do("ListFeatures", [&] { static_cast<void>(lAdapter->ListFeatures()); });
    Do("ReadFeatures", [&] { static_cast<void>(lAdapter->ReadFeatures()); });
    for (const char* const lName : {"N0", "N400", "E0", "Knife"})
    {
        KyString lText;
        KyStringList lEntries;
        Do("GetFeatureAsString", [&] { static_cast<void>(lAdapter->GetFeatureAsString(lName, lText)); });
        Do("GetEnumEntries", [&] { static_cast<void>(lAdapter->GetEnumEntries(lName, lEntries)); });
        Do("IsFeatureWritable", [&] { static_cast<void>(lAdapter->IsFeatureWritable(lName)); });
        Do("RegisterFeatureInterest", [&] { static_cast<void>(lAdapter->RegisterFeatureInterest(lName)); });
        Do("SetFeatureFromString", [&] { static_cast<void>(lAdapter->SetFeatureFromString(lName, "1")); });
        Do("WaitForEvents", [&] { lAdapter->WaitForEvents(); });
    }
    EXPECT_EQ(lAdapter->GetFigures().mLosses, 0U);
    Do("the end", [&] { lAdapter.reset(); });
    EXPECT_LT(KyTest::GetMostBytes() - lBefore, int64_t{64} << 20U);
    RecordProperty("mebibytes", static_cast<int>((KyTest::GetMostBytes() - lBefore) >> 20U));
}

INSTANTIATE_TEST_SUITE_P(
    All, HostileDescriptionTest,
    testing::Values(Case{"Elements", MakeElements}, Case{"Properties", MakeProperties},
                    Case{"Nodes", MakeNodes}, Case{"Attributes", MakeAttributes},
                    Case{"Structure", MakeStructure}, Case{"Entries", MakeEntries},
                    Case{"Invalidators", MakeInvalidators}, Case{"SharedTexts", MakeSharedTexts},
                    Case{"Events", MakeEvents,
                         "The device's description cannot be used: its events feed too many features."},
                    Case{"Text", MakeText}, Case{"Formula", MakeFormula},
                    Case{"Archive", MakeBlanks,
                         "The device's description cannot be unpacked: it is too long.", true}),
    [](const auto& aCase) { return std::string(aCase.param.mName); });

} // namespace
