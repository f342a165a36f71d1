#include "Adapters/GigE/Client/ParseInformation.h"
#include "Adapters/GigE/TextWithMemory.h"

#include <algorithm>
#include <cstdio>

namespace KyGigE
{

using KyGvcp::Bytes;
using KyGvcp::Reader;

namespace
{

Bytes Part(Bytes aRegisters, uint32_t aFrom, size_t aSize)
{
    Reader lReader(aRegisters);
    // A reader that runs out gives zeros or nothing, so a short answer leaves its last texts empty.
    lReader.Take(aFrom);
    return lReader.Take(aSize);
}

uint32_t Word(Bytes aRegisters, uint32_t aFrom)
{
    return Reader(Part(aRegisters, aFrom, 4)).Take32();
}

std::string Text(Bytes aRegisters, uint32_t aFrom, size_t aSize)
{
    const Bytes lBytes = Part(aRegisters, aFrom, aSize);
    // A control character ends the text too: what a device sends reaches terminals and logs.
    const auto lEnd = std::find_if(lBytes.begin(), lBytes.end(),
                                   [](uint8_t aByte) { return aByte < 0x20 || aByte == 0x7F; });
    return {lBytes.begin(), lEnd};
}

} // namespace

DeviceInformation ParseInformation(Bytes aRegisters)
{
    DeviceInformation lInformation;
    lInformation.mMac = static_cast<uint64_t>(Word(aRegisters, KyGvcp::cMacHighRegister) & 0xFFFFU) << 32U |
                        Word(aRegisters, KyGvcp::cMacLowRegister);
    lInformation.mAddress = Word(aRegisters, KyGvcp::cAddressRegister);
    lInformation.mMask = Word(aRegisters, KyGvcp::cSubnetMaskRegister);
    lInformation.mGateway = Word(aRegisters, KyGvcp::cGatewayRegister);
    lInformation.mVendor = Text(aRegisters, KyGvcp::cVendorRegister, KyGvcp::cTextSize);
    lInformation.mModel = Text(aRegisters, KyGvcp::cModelRegister, KyGvcp::cTextSize);
    lInformation.mVersion = Text(aRegisters, KyGvcp::cDeviceVersionRegister, KyGvcp::cTextSize);
    lInformation.mInformation = Text(aRegisters, KyGvcp::cInformationRegister, KyGvcp::cInformationSize);
    lInformation.mSerialNumber = Text(aRegisters, KyGvcp::cSerialNumberRegister, KyGvcp::cShortTextSize);
    lInformation.mUserName = Text(aRegisters, KyGvcp::cUserNameRegister, KyGvcp::cShortTextSize);
    return lInformation;
}

std::string MacText(uint64_t aMac)
{
    return TextWithMemory("",
                          [&]() -> std::string
                          {
                              char lText[18];
                              std::snprintf(lText, sizeof(lText), "%02X:%02X:%02X:%02X:%02X:%02X",
                                            static_cast<unsigned>(aMac >> 40U & 0xFFU),
                                            static_cast<unsigned>(aMac >> 32U & 0xFFU),
                                            static_cast<unsigned>(aMac >> 24U & 0xFFU),
                                            static_cast<unsigned>(aMac >> 16U & 0xFFU),
                                            static_cast<unsigned>(aMac >> 8U & 0xFFU),
                                            static_cast<unsigned>(aMac & 0xFFU));
                              return lText;
                          });
}

} // namespace KyGigE
