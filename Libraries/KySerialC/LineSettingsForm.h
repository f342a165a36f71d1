#pragma once

#include "KyBase/KyResult.h"
#include "KySerial/KySerialPortConfiguration.h"
#include "KySerialC/LineSettings.h"

namespace KySerialCLib
{

/// The library's form of line settings. \param aSettings  May be null.
/// \return OK; BAD_PARAMETER, logged: null, or of another size. The values are not looked at.
KyResult Convert(const char* aFunction, const KyLineSettings* aSettings,
                 KySerialPortConfiguration& aConfiguration);

/// Fills in aSettings, whose size has to be right. \return As the other.
KyResult Convert(const char* aFunction, const KySerialPortConfiguration& aConfiguration,
                 KyLineSettings* aSettings);

} // namespace KySerialCLib
