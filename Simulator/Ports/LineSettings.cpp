#include "Simulator/Ports/LineSettings.h"

#include <KySerial/DeviceProtocol.h>

#include <algorithm>

namespace KySimulator
{

using namespace KyDeviceProtocol;

uint32_t UartRate(uint32_t aIndex, uint32_t aDivisor)
{
    if (aIndex < cUartRates.size())
    {
        return cUartRates[aIndex];
    }
    // Indexes after the table choose the programmable rate: the divisor's low byte, in steps of a fixed bit time. A
    // divisor of 0 would be an endless rate.
    const uint32_t lDivisor = std::max(aDivisor & 0xFFU, 1U);
    return 1000000000U / (lDivisor * cCustomBitNanoseconds);
}

} // namespace KySimulator
