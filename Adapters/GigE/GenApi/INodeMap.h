#pragma once

#include <KyBase/KyResult.h>

#include <cstdint>
#include <string>
#include <vector>

namespace KyGigE
{

/// What a node of a node map is for the user of a device.
enum class NodeKind
{
    None, ///< No such feature.
    Integer,
    Float,
    Boolean,
    Enumeration,
    String,
    Register, ///< A block of bytes.
    Command,
    Category ///< A folder of features.
};

/// Where the bytes of a register feature are.
struct RegisterPlace
{
    uint64_t mAddress = 0;
    uint64_t mLength = 0; ///< Bytes.
};

/// What a register feature is wanted for.
enum class RegisterUse
{
    Look,
    Read,
    Write
};

/// What a list shows of a feature.
struct FeatureState
{
    bool mAvailable = false;
    bool mReadable = false;
    bool mWritable = false;
    std::string mValue;                ///< As GetText() gives it; empty if it cannot be read now.
    std::vector<std::string> mEntries; ///< As GetEntries() gives them; empty for other kinds.
};

/// The GenICam features of one device, by name.
///
/// Threads: any; each call is done before the next begins. A call may read the device several times and so
/// blocks as long as the register space blocks.
///
/// Results: OK; the register space's failure as it is; else a status of GigE Vision: 0x8001 no such feature,
/// 0x8002 another kind or a value that does not fit, 0x8004 can only be read, 0x8006 can only be written, or
/// not now. Out-values are empty or 0 on a failure.
class INodeMap
{
public:
    virtual ~INodeMap() = default;
    INodeMap(const INodeMap&) = delete;
    INodeMap& operator=(const INodeMap&) = delete;

    /// Kind of a feature, available or not.
    virtual NodeKind GetKind(const std::string& aName) = 0;
    /// Whether the device has the feature and it makes sense now.
    virtual bool IsAvailable(const std::string& aName) = 0;
    /// Whether its value can be read now.
    virtual bool IsReadable(const std::string& aName) = 0;
    /// Whether its value can be written now.
    virtual bool IsWritable(const std::string& aName) = 0;

    /// All of this, and on demand the value and the entries, worked out at once: a register that several of them depend on
    /// is read once.
    virtual FeatureState GetState(const std::string& aName, bool aWithValue) = 0;

    /// Value of an integer feature.
    virtual KyResult GetInteger(const std::string& aName, int64_t& aValue) = 0;
    /// Entries of an enumeration that can be chosen now, in the order of the device's description.
    virtual KyResult GetEntries(const std::string& aName, std::vector<std::string>& aEntries) = 0;
    /// Value as text: numbers, entry names, "true" and "false". Integers are decimal, 0x1F, 192.168.0.1 or
    /// 00:1B:63:84:45:E6, as the description wants them shown; of a floating-point number there are as many
    /// digits as it takes to set the same one again. Registers and commands have none.
    virtual KyResult GetText(const std::string& aName, std::string& aValue) = 0;
    /// Sets a value from text: whatever GetText() gives; integers also as decimal digits or 0x and
    /// hexadecimal ones, booleans as "true", "false" in any case, "1" and "0". A command is executed by "1"
    /// or "true".
    virtual KyResult SetText(const std::string& aName, const std::string& aValue) = 0;
    /// Where the bytes of a register feature are, if it can be used that way now.
    virtual KyResult GetRegister(const std::string& aName, RegisterUse aUse, RegisterPlace& aPlace) = 0;

protected:
    INodeMap() = default;
};

} // namespace KyGigE
