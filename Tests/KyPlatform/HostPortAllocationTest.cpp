// Ports of the host without memory. Part of the program that replaces operator new.

#include "KyPlatform/HostSerialPort.h"
#include "Platform/PseudoTerminal.h"
#include "Support/AllocationCounter.h"

#include <gtest/gtest.h>

using KyTest::AllocationCounter;

namespace
{

TEST(HostPortAllocationTest, PortsOfTheHostWithoutMemoryAreNotOpened)
{
    KyPlatform::HostSerialPort lPort;
    KyToolPlatform::PseudoTerminal lTerminal;
    {
        const AllocationCounter lNoMemory(1);
        EXPECT_FALSE(lPort.Open("/dev/ttyS0"));
        EXPECT_EQ(AllocationCounter::GetCount(), 1);
    }
    const AllocationCounter lNoMemory(1);
    EXPECT_FALSE(lTerminal.Create());
    EXPECT_FALSE(lTerminal.IsOpen());
}

} // namespace
