#include "Adapters/GigE/GenApi/SpaceDevice.h"

namespace KyGigE
{

namespace
{

struct DeviceObject
{
    ArvDevice mParent;
    SpaceAccess* mAccess;
};

SpaceAccess& AccessOf(ArvDevice* aDevice)
{
    return *reinterpret_cast<DeviceObject*>(aDevice)->mAccess;
}

gboolean Answer(SpaceAccess& aAccess, const KyResult& aResult, GError** aError)
{
    if (aResult.IsOK())
    {
        return TRUE;
    }
    aAccess.mFailure = aResult;
    g_set_error(aError, ARV_DEVICE_ERROR, ARV_DEVICE_ERROR_TRANSFER_ERROR, "%s",
                aResult.GetDescription().GetAscii());
    return FALSE;
}

bool IsRegister(const SpaceAccess& aAccess, guint64 aAddress, guint32 aSize)
{
    return aAccess.mRegistersOnly && aSize == 4 && aAddress % 4 == 0 && aAddress <= UINT32_MAX;
}

gboolean ReadMemory(ArvDevice* aDevice, guint64 aAddress, guint32 aSize, void* aBuffer, GError** aError)
{
    SpaceAccess& lAccess = AccessOf(aDevice);
    auto* const lBytes = static_cast<uint8_t*>(aBuffer);
    if (!IsRegister(lAccess, aAddress, aSize))
    {
        return Answer(lAccess, lAccess.mSpace.ReadMemory(aAddress, lBytes, aSize), aError);
    }
    uint32_t lValue = 0;
    const KyResult lResult = lAccess.mSpace.ReadRegister(aAddress, lValue);
    for (unsigned lByte = 0; lByte < 4; ++lByte)
    {
        lBytes[lByte] = static_cast<uint8_t>(lValue >> (24U - 8U * lByte));
    }
    return Answer(lAccess, lResult, aError);
}

gboolean WriteMemory(ArvDevice* aDevice, guint64 aAddress, guint32 aSize, void* aBuffer, GError** aError)
{
    SpaceAccess& lAccess = AccessOf(aDevice);
    const auto* const lBytes = static_cast<const uint8_t*>(aBuffer);
    if (!IsRegister(lAccess, aAddress, aSize))
    {
        return Answer(lAccess, lAccess.mSpace.WriteMemory(aAddress, lBytes, aSize), aError);
    }
    uint32_t lValue = 0;
    for (unsigned lByte = 0; lByte < 4; ++lByte)
    {
        lValue = lValue << 8U | lBytes[lByte];
    }
    return Answer(lAccess, lAccess.mSpace.WriteRegister(aAddress, lValue), aError);
}

gboolean ReadRegister(ArvDevice* aDevice, guint64 aAddress, guint32* aValue, GError** aError)
{
    SpaceAccess& lAccess = AccessOf(aDevice);
    return Answer(lAccess, lAccess.mSpace.ReadRegister(aAddress, *aValue), aError);
}

gboolean WriteRegister(ArvDevice* aDevice, guint64 aAddress, guint32 aValue, GError** aError)
{
    SpaceAccess& lAccess = AccessOf(aDevice);
    return Answer(lAccess, lAccess.mSpace.WriteRegister(aAddress, aValue), aError);
}

ArvGc* GetEvaluator(ArvDevice* aDevice)
{
    return AccessOf(aDevice).mEvaluator;
}

const char* GetXml(ArvDevice* aDevice, size_t* aSize)
{
    const std::string& lXml = AccessOf(aDevice).mXml;
    *aSize = lXml.size();
    return lXml.c_str();
}

void InitClass(gpointer aClass, gpointer /*aData*/)
{
    auto* const lClass = static_cast<ArvDeviceClass*>(aClass);
    lClass->read_memory = ReadMemory;
    lClass->write_memory = WriteMemory;
    lClass->read_register = ReadRegister;
    lClass->write_register = WriteRegister;
    lClass->get_genicam = GetEvaluator;
    lClass->get_genicam_xml = GetXml;
}

} // namespace

ArvDevice* NewSpaceDevice(SpaceAccess& aAccess)
{
    static const GType cType =
        g_type_register_static_simple(ARV_TYPE_DEVICE, "KyGigESpaceDevice", sizeof(ArvDeviceClass), InitClass,
                                      sizeof(DeviceObject), nullptr, static_cast<GTypeFlags>(0));
    auto* const lDevice = static_cast<DeviceObject*>(g_object_new(cType, nullptr));
    lDevice->mAccess = &aAccess;
    return &lDevice->mParent;
}

} // namespace KyGigE
