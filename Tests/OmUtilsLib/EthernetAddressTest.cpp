#include "OmUtilsLib/Network/EthernetAddress.h"

#include <gtest/gtest.h>

using OmUtilsLib::Network::EthernetAddress;

TEST(EthernetAddressTest, TextHasSixPairsMostSignificantFirst)
{
    EXPECT_STREQ(EthernetAddress(0x00111C0203FEULL).GetString().GetAscii(), "00:11:1c:02:03:fe");
    EXPECT_STREQ(EthernetAddress(0).GetString().GetAscii(), "00:00:00:00:00:00");
    EXPECT_STREQ(EthernetAddress(0xFFFFFFFFFFFFULL).GetString().GetAscii(), "ff:ff:ff:ff:ff:ff");
}

TEST(EthernetAddressTest, BitsAboveTheAddressAreIgnored)
{
    EXPECT_STREQ(EthernetAddress(0xABCD00111C020304ULL).GetString().GetAscii(), "00:11:1c:02:03:04");
    EXPECT_EQ(EthernetAddress(0xABCD00111C020304ULL).GetValue(), 0x00111C020304ULL);
}
