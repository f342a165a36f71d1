#pragma once

#include "ToolRun.h"

#include <nlohmann/json.hpp>

#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <vector>

namespace KyTest
{

/// "kyserial bridge" that runs beside a test.
class BridgeRun
{
public:
    /// Starts it and waits until it relays.
    explicit BridgeRun(const std::vector<std::string>& aArguments)
    {
        std::vector<std::string> lArguments = {"bridge", "--stats-json", "--stats-interval", "100"};
        lArguments.insert(lArguments.end(), aArguments.begin(), aArguments.end());
        EXPECT_TRUE(mTool.Start("kyserial", lArguments, {}));
        EXPECT_TRUE(mTool.WaitForOutput("\"final\":false")) << mTool.Error();
    }

    /// Ends it as Ctrl-C would. \return Its status; -1 when it does not end.
    int End()
    {
        EXPECT_TRUE(mTool.AskToEnd());
        return mTool.Wait().value_or(-1);
    }

    /// Its last report.
    nlohmann::json LastReport() const
    {
        std::istringstream lLines(mTool.Output());
        std::string lLast = "null";
        for (std::string lLine; std::getline(lLines, lLine) && !lLines.eof();)
        {
            lLast = lLine;
        }
        return nlohmann::json::parse(lLast);
    }

    Process mTool;
};

} // namespace KyTest
