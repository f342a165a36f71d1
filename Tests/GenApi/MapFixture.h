#pragma once

#include "GigE/FakeSpace.h"
#include "Support/ResultMatcher.h"

#include "Adapters/GigE/Evaluator/NodeMap.h"

#include <gmock/gmock.h>

#include <memory>
#include <string>

namespace KyTest
{

/// A node map over a table of bytes, with a clock that a test moves.
class MapFixture : public testing::Test
{
protected:
    void Make(const std::string& aXml)
    {
        mMap.reset();
        ASSERT_THAT(KyGigE::DeviceDescription::Parse(aXml, mDescription), IsOK());
        mMap = std::make_unique<KyGigE::NodeMap>(*mDescription, mSpace, [this] { return mNow; });
    }
    void MakeNodes(const std::string& aNodes) { Make(Description(aNodes)); }

    /// A feature's text, or "error".
    std::string TextOf(const std::string& aName)
    {
        std::string lText;
        return mMap->GetText(aName, lText).IsOK() ? lText : "error";
    }
    /// Why a feature has no text.
    std::string ProblemOf(const std::string& aName)
    {
        std::string lText;
        return mMap->GetText(aName, lText).GetDescription().GetAscii();
    }
    KyResult Set(const std::string& aName, const std::string& aText) { return mMap->SetText(aName, aText); }
    /// Accesses since the last call.
    std::vector<std::string> TakeAccesses() { return std::exchange(mSpace.mAccesses, {}); }

    FakeSpace mSpace;
    uint64_t mNow = 1000;
    std::unique_ptr<KyGigE::DeviceDescription> mDescription;
    std::unique_ptr<KyGigE::NodeMap> mMap;
};

inline std::string Element(const std::string& aName, const std::string& aText)
{
    return "<" + aName + ">" + aText + "</" + aName + ">";
}

inline std::string NodeXml(const std::string& aKind, const std::string& aName, const std::string& aInside)
{
    return "<" + aKind + " Name=\"" + aName + "\">" + aInside + "</" + aKind + ">";
}

/// A text as XML has it.
inline std::string Escaped(const std::string& aText)
{
    std::string lEscaped;
    for (const char lChar : aText)
    {
        lEscaped += lChar == '<'   ? "&lt;"
                    : lChar == '>' ? "&gt;"
                    : lChar == '&' ? "&amp;"
                                   : std::string(1, lChar);
    }
    return lEscaped;
}

} // namespace KyTest
