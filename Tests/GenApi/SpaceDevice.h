#pragma once

#include "Adapters/GigE/GenApi/FeatureGraph.h"
#include "Adapters/GigE/GenApi/IRegisterSpace.h"

#include <arv.h>

#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace KyGigE
{

/// What the evaluator's device object works on.
struct SpaceAccess
{
    IRegisterSpace& mSpace;
    bool mRegistersOnly = false;                  ///< Four bytes are a register.
    std::string mXml{};                           ///< The description, for who asks the object for it.
    ArvGc* mEvaluator = nullptr;                  ///< Likewise.
    std::unique_ptr<const FeatureGraph> mGraph{}; ///< The description's.
    /// The registers that the evaluator reads for a feature, by its name; found when it is first asked for.
    std::map<std::string, std::vector<ArvGcRegister*>> mRegisters{};
    std::optional<KyResult>
        mFailure{}; ///< The register space's last failure; the evaluator only knows texts.
};

/// A device object of Aravis whose registers lie in a register space of ours. The caller owns the reference;
/// aAccess has to outlive it.
///
/// The object's type stays registered until the process ends, so the library that holds this code must never
/// be unloaded.
ArvDevice* NewSpaceDevice(SpaceAccess& aAccess);

} // namespace KyGigE
