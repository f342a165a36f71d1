#pragma once

#include "Tests/Support/HostLink.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>

namespace KyTest
{

/// A test that has a serial port of the host; it is skipped without one.
/// \tparam Base  The fixture that it extends.
template<typename Base>
class HostLinkTest : public Base
{
protected:
    void SetUp() override
    {
        Base::SetUp();
        const std::string lReason = HostLink::GetReasonToSkip();
        if (!lReason.empty())
        {
            GTEST_SKIP() << lReason;
        }
        mLink = std::make_unique<HostLink>();
    }

    /// False: the test is skipped, and there is nothing to set up.
    bool HasLink() const { return mLink != nullptr; }

    std::unique_ptr<HostLink> mLink;
};

} // namespace KyTest
