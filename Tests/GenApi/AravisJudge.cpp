#include "GenApi/AravisJudge.h"

#include <arv.h>

namespace KyTest
{

using KyGigE::IRegisterSpace;

namespace
{

struct DeviceObject
{
    ArvDevice mParent;
    IRegisterSpace* mSpace;
    ArvGc* mEvaluator;
};

DeviceObject& ObjectOf(ArvDevice* aDevice)
{
    return *reinterpret_cast<DeviceObject*>(aDevice);
}

gboolean Answer(const KyResult& aResult, GError** aError)
{
    if (!aResult.IsOK())
    {
        g_set_error(aError, ARV_DEVICE_ERROR, ARV_DEVICE_ERROR_TRANSFER_ERROR, "%s",
                    aResult.GetDescription().GetAscii());
    }
    return aResult.IsOK() ? TRUE : FALSE;
}

gboolean ReadMemory(ArvDevice* aDevice, guint64 aAddress, guint32 aSize, void* aBuffer, GError** aError)
{
    return Answer(ObjectOf(aDevice).mSpace->ReadMemory(aAddress, static_cast<uint8_t*>(aBuffer), aSize),
                  aError);
}

gboolean WriteMemory(ArvDevice* aDevice, guint64 aAddress, guint32 aSize, void* aBuffer, GError** aError)
{
    return Answer(ObjectOf(aDevice).mSpace->WriteMemory(aAddress, static_cast<uint8_t*>(aBuffer), aSize),
                  aError);
}

gboolean ReadRegister(ArvDevice* aDevice, guint64 aAddress, guint32* aValue, GError** aError)
{
    return Answer(ObjectOf(aDevice).mSpace->ReadRegister(aAddress, *aValue), aError);
}

gboolean WriteRegister(ArvDevice* aDevice, guint64 aAddress, guint32 aValue, GError** aError)
{
    return Answer(ObjectOf(aDevice).mSpace->WriteRegister(aAddress, aValue), aError);
}

ArvGc* GetEvaluator(ArvDevice* aDevice)
{
    return ObjectOf(aDevice).mEvaluator;
}

void InitClass(gpointer aClass, gpointer /*aData*/)
{
    auto* const lClass = static_cast<ArvDeviceClass*>(aClass);
    lClass->read_memory = ReadMemory;
    lClass->write_memory = WriteMemory;
    lClass->read_register = ReadRegister;
    lClass->write_register = WriteRegister;
    lClass->get_genicam = GetEvaluator;
}

// It complains of much, in the middle of a test's output.
GLogWriterOutput TakeMessage(GLogLevelFlags /*aLevel*/, const GLogField* /*aFields*/, gsize /*aCount*/,
                             gpointer /*aData*/)
{
    return G_LOG_WRITER_HANDLED;
}

DeviceObject* NewDevice(IRegisterSpace& aSpace)
{
    static const GType cType = []
    {
        g_log_set_writer_func(&TakeMessage, nullptr, nullptr);
        return g_type_register_static_simple(ARV_TYPE_DEVICE, "KyTestSpaceDevice", sizeof(ArvDeviceClass),
                                             InitClass, sizeof(DeviceObject), nullptr,
                                             static_cast<GTypeFlags>(0));
    }();
    auto* const lDevice = static_cast<DeviceObject*>(g_object_new(cType, nullptr));
    lDevice->mSpace = &aSpace;
    return lDevice;
}

/// An error of a call, which is looked at once.
class Error
{
public:
    ~Error() { g_clear_error(&mError); }
    GError** operator&() { return &mError; } // NOLINT: what C functions are given
    template<class Value>
    std::optional<Value> Checked(Value aValue) const
    {
        return mError == nullptr ? std::optional<Value>(std::move(aValue)) : std::nullopt;
    }
    bool IsGood() const { return mError == nullptr; }

private:
    GError* mError = nullptr;
};

/// The registers of Aravis's simulated camera.
class FakeCameraSpace final : public IRegisterSpace
{
public:
    FakeCameraSpace() : mCamera(arv_fake_camera_new("TEST")) {}
    ~FakeCameraSpace() { g_object_unref(mCamera); }
    FakeCameraSpace(const FakeCameraSpace&) = delete;
    FakeCameraSpace& operator=(const FakeCameraSpace&) = delete;

    KyResult ReadMemory(uint64_t aAddress, uint8_t* aBuffer, uint64_t aSize) override
    {
        return KyResult(arv_fake_camera_read_memory(mCamera, static_cast<guint32>(aAddress),
                                                    static_cast<guint32>(aSize), aBuffer) != FALSE
                            ? 0U
                            : 0x8003U);
    }
    KyResult WriteMemory(uint64_t aAddress, const uint8_t* aBuffer, uint64_t aSize) override
    {
        return KyResult(arv_fake_camera_write_memory(mCamera, static_cast<guint32>(aAddress),
                                                     static_cast<guint32>(aSize), aBuffer) != FALSE
                            ? 0U
                            : 0x8003U);
    }
    KyResult ReadRegister(uint64_t aAddress, uint32_t& aValue) override
    {
        return KyResult(arv_fake_camera_read_register(mCamera, static_cast<guint32>(aAddress), &aValue) !=
                                FALSE
                            ? 0U
                            : 0x8003U);
    }
    KyResult WriteRegister(uint64_t aAddress, uint32_t aValue) override
    {
        return KyResult(arv_fake_camera_write_register(mCamera, static_cast<guint32>(aAddress), aValue) !=
                                FALSE
                            ? 0U
                            : 0x8003U);
    }

private:
    ArvFakeCamera* const mCamera;
};

} // namespace

struct AravisJudge::Parts
{
    ArvGcNode* Find(const std::string& aName) const { return arv_gc_get_node(mEvaluator, aName.c_str()); }

    DeviceObject* mDevice = nullptr;
    std::string mXml{};
    ArvGc* mEvaluator = nullptr;
};

AravisJudge::AravisJudge(const std::string& aXml, IRegisterSpace& aSpace) : mThis(std::make_unique<Parts>())
{
    mThis->mDevice = NewDevice(aSpace);
    mThis->mXml = aXml;
    mThis->mEvaluator = arv_gc_new(&mThis->mDevice->mParent, mThis->mXml.data(), mThis->mXml.size());
    mThis->mDevice->mEvaluator = mThis->mEvaluator;
    arv_gc_set_range_check_policy(mThis->mEvaluator, ARV_RANGE_CHECK_POLICY_ENABLE);
}

AravisJudge::~AravisJudge()
{
    g_object_unref(mThis->mEvaluator);
    g_object_unref(mThis->mDevice);
}

std::string AravisJudge::GetElement(const std::string& aName)
{
    ArvGcNode* const lNode = mThis->Find(aName);
    return lNode != nullptr ? arv_dom_node_get_node_name(ARV_DOM_NODE(lNode)) : "";
}

bool AravisJudge::IsAvailable(const std::string& aName)
{
    Error lError;
    auto* const lNode = ARV_GC_FEATURE_NODE(mThis->Find(aName));
    return arv_gc_feature_node_is_implemented(lNode, &lError) != FALSE && lError.IsGood() &&
           arv_gc_feature_node_is_available(lNode, &lError) != FALSE && lError.IsGood();
}

bool AravisJudge::IsLocked(const std::string& aName)
{
    Error lError;
    return arv_gc_feature_node_is_locked(ARV_GC_FEATURE_NODE(mThis->Find(aName)), &lError) != FALSE;
}

std::string AravisJudge::GetAccess(const std::string& aName)
{
    switch (arv_gc_feature_node_get_actual_access_mode(ARV_GC_FEATURE_NODE(mThis->Find(aName))))
    {
    case ARV_GC_ACCESS_MODE_RO:
        return "RO";
    case ARV_GC_ACCESS_MODE_WO:
        return "WO";
    case ARV_GC_ACCESS_MODE_RW:
        return "RW";
    default:
        return "";
    }
}

std::optional<int64_t> AravisJudge::GetInteger(const std::string& aName)
{
    Error lError;
    return lError.Checked<int64_t>(arv_gc_integer_get_value(ARV_GC_INTEGER(mThis->Find(aName)), &lError));
}

std::optional<double> AravisJudge::GetFloat(const std::string& aName)
{
    Error lError;
    const double lValue = arv_gc_float_get_value(ARV_GC_FLOAT(mThis->Find(aName)), &lError);
    return lError.Checked(lValue);
}

std::optional<std::string> AravisJudge::GetText(const std::string& aName)
{
    Error lError;
    const char* const lText =
        arv_gc_feature_node_get_value_as_string(ARV_GC_FEATURE_NODE(mThis->Find(aName)), &lError);
    return lText != nullptr ? lError.Checked(std::string(lText)) : std::nullopt;
}

std::optional<std::vector<std::string>> AravisJudge::GetEntries(const std::string& aName)
{
    Error lError;
    guint lCount = 0;
    const char** const lNames = arv_gc_enumeration_dup_available_string_values(
        ARV_GC_ENUMERATION(mThis->Find(aName)), &lCount, &lError);
    std::vector<std::string> lEntries(lNames, lNames != nullptr ? lNames + lCount : lNames);
    g_free(lNames);
    return lError.Checked(std::move(lEntries));
}

std::optional<int64_t> AravisJudge::GetLimit(const std::string& aName, bool aMax)
{
    Error lError;
    auto* const lNode = ARV_GC_INTEGER(mThis->Find(aName));
    const int64_t lLimit =
        aMax ? arv_gc_integer_get_max(lNode, &lError) : arv_gc_integer_get_min(lNode, &lError);
    return lError.Checked(lLimit);
}

std::optional<double> AravisJudge::GetFloatLimit(const std::string& aName, bool aMax)
{
    Error lError;
    auto* const lNode = ARV_GC_FLOAT(mThis->Find(aName));
    const double lLimit = aMax ? arv_gc_float_get_max(lNode, &lError) : arv_gc_float_get_min(lNode, &lError);
    return lError.Checked(lLimit);
}

bool AravisJudge::SetInteger(const std::string& aName, int64_t aValue)
{
    Error lError;
    arv_gc_integer_set_value(ARV_GC_INTEGER(mThis->Find(aName)), aValue, &lError);
    return lError.IsGood();
}

bool AravisJudge::SetFloat(const std::string& aName, double aValue)
{
    Error lError;
    arv_gc_float_set_value(ARV_GC_FLOAT(mThis->Find(aName)), aValue, &lError);
    return lError.IsGood();
}

std::string AravisJudge::GetFakeXml()
{
    ArvFakeCamera* const lCamera = arv_fake_camera_new("TEST");
    size_t lSize = 0;
    const char* const lXml = arv_fake_camera_get_genicam_xml(lCamera, &lSize);
    std::string lText(lXml, lSize);
    g_object_unref(lCamera);
    return lText;
}

std::unique_ptr<IRegisterSpace, void (*)(IRegisterSpace*)> AravisJudge::MakeFakeSpace()
{
    return {new FakeCameraSpace,
            [](IRegisterSpace* aSpace) { delete static_cast<FakeCameraSpace*>(aSpace); }};
}

} // namespace KyTest
