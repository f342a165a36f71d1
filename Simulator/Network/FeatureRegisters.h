#pragma once

#include "Simulator/Camera/CameraModel.h"
#include "Simulator/Camera/FeatureTable.h"

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace KySimulator
{

/// Where a feature of the camera lies in its address space.
struct FeatureRegister
{
    std::string mName;
    Feature mFeature;
    uint32_t mAddress = 0; ///< 0: the feature is no register of its own.
    uint32_t mLength = 0;
    std::vector<std::string> mEntries; ///< Of an enumeration, by value; some may not be available at times.
};

/// The camera's settings and message features as registers of the manufacturer's range. Applications find their
/// addresses in the device description.
///
/// Enumerations are words that hold the position of the present entry. Messages are written to the address
/// of their feature, as long as they are, in one piece.
class FeatureRegisters
{
public:
    /// \param aCamera  Outlives this object.
    explicit FeatureRegisters(CameraModel& aCamera);

    /// All features, in the order of their names.
    const std::vector<FeatureRegister>& GetList() const { return mList; }
    /// A word with a bit for each entry that "BulkMode" has at present.
    static uint32_t GetModeMaskAddress();
    /// Whether an address belongs to a feature.
    bool Contains(uint32_t aAddress) const;

    /// \return The camera's refusals; InvalidAddress; AccessDenied: a message feature.
    Outcome ReadWord(uint32_t aAddress, uint32_t& aValue) const;
    /// \return The camera's refusals; InvalidAddress; WriteProtect.
    Outcome WriteWord(uint32_t aAddress, uint32_t aValue);
    /// Whether there is a message feature at aAddress.
    bool IsMessage(uint32_t aAddress) const;
    /// Writes one message.
    Outcome WriteMessage(uint32_t aAddress, std::span<const uint8_t> aData);

private:
    const FeatureRegister* Find(uint32_t aAddress) const;

    CameraModel& mCamera;
    std::vector<FeatureRegister> mList;
};

} // namespace KySimulator
