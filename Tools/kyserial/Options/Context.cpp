#include "kyserial/Options/Context.h"

#include "kyserial/Text/Failure.h"

namespace KySerialTool
{

std::unique_ptr<Device> OpenDevice(Context& aContext, DeviceAccess aAccess)
{
    return OpenDevice(aContext.mCommon.mDevice, aContext.mConsole, aAccess);
}

void Print(Context& aContext, const std::string& aText)
{
    if (!aContext.mConsole.Write(reinterpret_cast<const uint8_t*>(aText.data()), aText.size()))
    {
        throw OperationError("cannot write to the standard output");
    }
}

} // namespace KySerialTool
