#pragma once

#include "Simulator/Camera/CameraConfiguration.h"
#include "Simulator/Camera/CameraListener.h"
#include "Simulator/Peers/I2CBusPeer.h"
#include "Simulator/Peers/SerialPeer.h"
#include "Simulator/Peers/SpiBusPeer.h"
#include "Simulator/Ports/Outcome.h"
#include "Simulator/Ports/Port.h"
#include "Simulator/Time/Scheduler.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace KySimulator
{

class CameraCore;

/// Kind of a GenICam feature.
enum class FeatureKind
{
    None, ///< No such feature.
    Integer,
    Enumeration,
    String,
    Register ///< A block of bytes.
};

/// A camera: registers, GenICam features, serial ports with their lines, and events. It does not know how an
/// application reaches it: SimulatedDeviceAdapter does that in the same process, NetworkCamera over a network.
///
/// Docs/simulated-camera.md says what is modelled. Every function may be called from any thread, also from
/// inside listeners and peers. No function throws but for lack of memory, and none reads or writes outside
/// the buffers that it was given.
class CameraModel
{
public:
    /// \param aConfiguration  What the camera is; see Completed() for what is filled in.
    /// \param aScheduler      Its clock; null gives the camera a RealScheduler of its own.
    explicit CameraModel(const CameraConfiguration& aConfiguration = {},
                         std::shared_ptr<Scheduler> aScheduler = nullptr);
    /// Ends every callback: waits for one that is running, except on its own thread.
    ~CameraModel();
    CameraModel(const CameraModel&) = delete;
    CameraModel& operator=(const CameraModel&) = delete;

    /// The completed configuration.
    const CameraConfiguration& GetConfiguration() const;
    /// The clock.
    Scheduler& GetScheduler() const;

    /// Reads a 32-bit register. aValue is 0 on a failure.
    /// \return InvalidAddress, BadAlignment.
    Outcome ReadRegister(uint32_t aAddress, uint32_t& aValue);
    /// Writes a 32-bit register. \return InvalidAddress, BadAlignment, WriteProtect.
    Outcome WriteRegister(uint32_t aAddress, uint32_t aValue);
    /// Writes transmit data into bulk port 0's window: bit 31, and the I2C flags 0x200 to 0x1000.
    /// \param aData  Not null unless aSize is 0, which is refused.
    /// \return InvalidAddress; InvalidParameter: no data, or an I2C command without sense; NoAcknowledge.
    Outcome WriteMemory(uint32_t aAddress, const uint8_t* aData, size_t aSize);

    /// What aName is; None when this camera does not have it.
    FeatureKind GetFeatureKind(const std::string& aName) const;
    bool IsFeatureReadable(const std::string& aName) const;
    bool IsFeatureWritable(const std::string& aName) const;
    /// An integer feature's value; 0 on a failure. \return NotImplemented, InvalidParameter (another kind).
    /// "EventBulk%iUpstreamDataLength" is the length of the port's last upstream event.
    Outcome GetInteger(const std::string& aName, int64_t& aValue) const;
    /// An integer's, enumeration's or string's value as text; empty on a failure.
    /// \return NotImplemented; InvalidParameter: a register feature; AccessDenied: a setting without an
    /// entry.
    Outcome GetText(const std::string& aName, std::string& aValue) const;
    /// \return NotImplemented; InvalidParameter: no such entry; WriteProtect.
    Outcome SetText(const std::string& aName, const std::string& aValue);
    /// Names of an enumeration's entries, in the camera's order. \return NotImplemented, InvalidParameter.
    Outcome GetEntries(const std::string& aName, std::vector<std::string>& aEntries) const;
    /// Length in bytes of a register feature. \return NotImplemented, InvalidParameter.
    Outcome GetRegisterLength(const std::string& aName, int64_t& aLength) const;
    /// The first aLength bytes of an upstream buffer: the port's last upstream event, then zeros.
    /// \return NotImplemented; InvalidParameter: a null buffer or a length outside the feature; AccessDenied.
    Outcome GetRegisterData(const std::string& aName, uint8_t* aBuffer, int64_t aLength) const;
    /// Writes one message into a downstream feature.
    /// \return NotImplemented; WriteProtect; InvalidParameter: a null buffer, a length outside the feature, a
    ///         message that does not fit its header; AccessDenied: the port's interface does not exist; Busy;
    ///         NoAcknowledge.
    Outcome SetRegisterData(const std::string& aName, const uint8_t* aBuffer, int64_t aLength);

    /// Adds a listener, not owned; a second time has no effect.
    void AddListener(CameraListener* aListener);
    /// Removes a listener. No call into it runs when this returns, except the one it is called from.
    void RemoveListener(CameraListener* aListener);
    /// Waits until listeners and peers have had everything that has been raised so far. Inside a callback it
    /// returns at once.
    void WaitForListeners();

    /// Puts a peer on the line of a port, in place of the one that was there; null only takes that away. A
    /// peer is on one line at a time.
    void Plug(Port aPort, std::shared_ptr<SerialPeer> aPeer);
    /// Puts an I2C bus on a bulk port, used in I2C mode; null takes it away: no slave acknowledges then.
    void PlugI2C(Port aPort, std::shared_ptr<I2CBusPeer> aBus);
    /// Puts an SPI bus on a bulk port, used in SPI mode; null takes it away: reads give 0xFF.
    void PlugSpi(Port aPort, std::shared_ptr<SpiBusPeer> aBus);

    /// Lets bytes arrive at a port from its line, at the line's speed. Nothing for a port that does not
    /// exist.
    void InjectBytes(Port aPort, const uint8_t* aData, size_t aSize);
    /// What has gone out on a port's line in UART and USRT mode, oldest first, up to the configuration's
    /// mWireLimit.
    std::vector<uint8_t> GetWire(Port aPort) const;
    /// Forgets it.
    void ClearWire(Port aPort);
    /// What a port has seen; zeros for a port that does not exist.
    PortCounters GetCounters(Port aPort) const;
    /// Time that one byte takes on a port's line as it is set now; 0 when lines take no time.
    Time GetByteTime(Port aPort) const;

private:
    std::shared_ptr<CameraCore> mThis;
};

} // namespace KySimulator
