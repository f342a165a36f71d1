"""The C interface's shared libraries: found, loaded, and told the types of their functions."""
import ctypes
import ctypes.util
import os
import sys
from ctypes import CFUNCTYPE, POINTER, c_char_p, c_int32, c_int64, c_uint8, c_uint16, c_uint32, c_uint64, c_void_p

_NAMES = {"linux": "lib{}.so.0", "win32": "{}.dll"}


def _load(name):
    """Loads a library: from the folder in KYSERIAL_LIBRARY_PATH, from this package's, or as the system does."""
    file = _NAMES.get(sys.platform, "lib{}.so").format(name)
    folders = [os.environ.get("KYSERIAL_LIBRARY_PATH"), os.path.dirname(os.path.abspath(__file__))]
    for folder in folders:
        # Absolute: Windows looks for what a library needs in its own folder only then.
        path = os.path.abspath(os.path.join(folder, file)) if folder else ""
        if os.path.exists(path):
            return ctypes.CDLL(path)
    try:
        return ctypes.CDLL(ctypes.util.find_library(name) or file)
    except OSError as error:
        raise ImportError(f"{file} was not found; KYSERIAL_LIBRARY_PATH may name its folder") from error


_OUT_I32, _OUT_U32, _OUT_U64 = POINTER(c_int32), POINTER(c_uint32), POINTER(c_uint64)
_BYTES, _TEXT, _HANDLE = c_void_p, c_char_p, c_uint64

# The adapter's functions by what they take behind the context, in the order of the table.
QUESTION = CFUNCTYPE(c_int32, c_void_p)
READ_REGISTER = CFUNCTYPE(c_uint32, c_void_p, c_uint32, _OUT_U32)
WRITE_REGISTER = CFUNCTYPE(c_uint32, c_void_p, c_uint32, c_uint32)
WRITE_MEMORY = CFUNCTYPE(c_uint32, c_void_p, POINTER(c_uint8), c_uint32, c_uint32)
NAMED_QUESTION = CFUNCTYPE(c_int32, c_void_p, c_char_p)
ENTRY_QUESTION = CFUNCTYPE(c_int32, c_void_p, c_char_p, c_char_p)
GET_INTEGER = CFUNCTYPE(c_uint32, c_void_p, c_char_p, POINTER(c_int64))
NAMED = CFUNCTYPE(c_uint32, c_void_p, c_char_p)
SET_TEXT = CFUNCTYPE(c_uint32, c_void_p, c_char_p, c_char_p)
REGISTER_DATA = CFUNCTYPE(c_uint32, c_void_p, c_char_p, POINTER(c_uint8), c_int64)
POST_WRITE = CFUNCTYPE(c_uint32, c_void_p, c_uint32)
SINK = CFUNCTYPE(c_uint32, c_void_p, c_uint64)

ADAPTER_FUNCTIONS = [
    ("is_connected", QUESTION), ("is_korvo_video_interface", QUESTION), ("is_gige_vision", QUESTION),
    ("is_alternate_transport", QUESTION), ("read_register", READ_REGISTER), ("write_register", WRITE_REGISTER),
    ("write_memory", WRITE_MEMORY), ("is_feature_available", NAMED_QUESTION),
    ("is_integer_feature_available", NAMED_QUESTION), ("is_register_feature_available", NAMED_QUESTION),
    ("is_feature_readable", NAMED_QUESTION), ("is_feature_writable", NAMED_QUESTION),
    ("is_enum_entry_available", ENTRY_QUESTION), ("get_integer_value", GET_INTEGER), ("get_enum_entries", NAMED),
    ("get_feature_as_string", NAMED), ("set_feature_from_string", SET_TEXT), ("get_string_value", NAMED),
    ("get_register_length", GET_INTEGER), ("get_register_data", REGISTER_DATA),
    ("set_register_data", REGISTER_DATA), ("post_write", POST_WRITE), ("register_feature_interest", NAMED),
    ("unregister_feature_interest", NAMED), ("register_event_sink", SINK), ("unregister_event_sink", SINK)]


class Adapter(ctypes.Structure):
    """KyAdapter."""
    _fields_ = [("size", c_uint32), ("reserved", c_uint32), ("context", c_void_p)] + ADAPTER_FUNCTIONS


class LineSettings(ctypes.Structure):
    """KyLineSettings."""
    _fields_ = [("size", c_uint32), ("baudrate", c_uint32), ("parity", c_int32), ("bytesize", c_uint32),
                ("stopbits", c_uint32)]


class BridgeFlow(ctypes.Structure):
    """KyBridgeFlow."""
    _fields_ = [("size", c_uint32), ("reserved", c_uint32), ("taken", c_uint64), ("delivered", c_uint64),
                ("overrun", c_uint64), ("cleared", c_uint64), ("refused", c_uint64), ("cut_off", c_uint64),
                ("away", c_uint64)]


OBSERVER_FUNCTIONS = [
    ("traffic", CFUNCTYPE(None, c_void_p, c_int32, c_int64, POINTER(c_uint8), c_uint32)),
    ("loss", CFUNCTYPE(None, c_void_p, c_int32, c_int32, c_uint64)),
    ("device_gone", CFUNCTYPE(None, c_void_p)), ("device_back", CFUNCTYPE(None, c_void_p, c_uint64)),
    ("settings", CFUNCTYPE(None, c_void_p, POINTER(LineSettings)))]
GENERATION = CFUNCTYPE(c_uint64, c_void_p)


class BridgeObserver(ctypes.Structure):
    """KyBridgeObserver."""
    _fields_ = [("size", c_uint32), ("reserved", c_uint32), ("context", c_void_p)] + OBSERVER_FUNCTIONS


class LogRecord(ctypes.Structure):
    """KyLogRecord."""
    _fields_ = [("size", c_uint32), ("priority", c_int32), ("category", c_char_p), ("file", c_char_p),
                ("function", c_char_p), ("message", c_char_p), ("line", c_int32)]


class SimOptions(ctypes.Structure):
    """KySimOptions."""
    _fields_ = [("size", c_uint32), ("transport", c_int32), ("uart_count", c_uint32),
                ("unlimited_line_rate", c_int32)]


class CameraSearch(ctypes.Structure):
    """KyCameraSearch."""
    _fields_ = [("size", c_uint32), ("time", c_uint32), ("address", c_char_p), ("interface", c_char_p),
                ("port", c_uint32), ("ask_control", c_int32)]


class FoundCamera(ctypes.Structure):
    """KyFoundCamera."""
    _fields_ = [("size", c_uint32), ("port", c_uint32), ("device", c_char_p), ("address", c_char_p), ("mac", c_char_p),
                ("serial_number", c_char_p), ("user_name", c_char_p), ("vendor", c_char_p), ("model", c_char_p),
                ("version", c_char_p), ("information", c_char_p), ("interface", c_char_p), ("control", c_int32),
                ("controller_port", c_uint32), ("controller", c_char_p)]


class CameraOptions(ctypes.Structure):
    """KyCameraOptions."""
    _fields_ = [("size", c_uint32), ("read_only", c_int32), ("interface", c_char_p), ("reconnect", c_int32),
                ("search_time", c_uint32), ("connect_limit", c_uint32), ("timeout", c_uint32), ("attempts", c_uint32),
                ("pending", c_uint32), ("heartbeat_period", c_uint32), ("heartbeat_timeout", c_uint32),
                ("event_timeout", c_uint32), ("event_retries", c_uint32)]


class CameraState(ctypes.Structure):
    """KyCameraState."""
    _fields_ = [("size", c_uint32), ("is_connected", c_int32), ("generation", c_uint64), ("losses", c_uint64),
                ("repeated_commands", c_uint64), ("repeated_events", c_uint64), ("foreign_events", c_uint64)]


class FeatureForm(ctypes.Structure):
    """KyFeature."""
    _fields_ = [("size", c_uint32), ("kind", c_int32), ("access", c_int32), ("reserved", c_int32), ("name", c_char_p),
                ("category", c_char_p), ("visibility", c_char_p), ("tool_tip", c_char_p)]


FOUND_FUNCTION = CFUNCTYPE(None, c_void_p, POINTER(FoundCamera))
FEATURE_FUNCTION = CFUNCTYPE(None, c_void_p, POINTER(FeatureForm))
TEXT_FUNCTION = CFUNCTYPE(None, c_void_p, c_char_p)
LOG_FUNCTION = CFUNCTYPE(None, c_void_p, POINTER(LogRecord))

# Everything that gives a code, by the types that it takes.
_SIGNATURES = {
    "KyDeviceCreate": [POINTER(Adapter), _OUT_U64],
    "KyDeviceDestroy": [_HANDLE],
    "KyDeviceNotifyEvent": [_HANDLE, c_uint16, c_uint16, c_uint64, c_uint64, c_char_p, c_uint32],
    "KyDeviceNotifyFeatureInvalidated": [_HANDLE, _TEXT],
    "KyDeviceIsConnected": [_HANDLE, _OUT_I32],
    "KyDeviceGetFeature": [_HANDLE, _TEXT, c_char_p, _OUT_U32],
    "KyDeviceSetFeature": [_HANDLE, _TEXT, _TEXT],
    "KyReturnText": [_TEXT],
    "KyPortCreate": [_OUT_U64], "KyPortDestroy": [_HANDLE],
    "KyPortOpen": [_HANDLE, _HANDLE, c_int32], "KyPortClose": [_HANDLE],
    "KyPortIsOpened": [_HANDLE, _OUT_I32],
    "KyPortWrite": [_HANDLE, _BYTES, c_uint32, _OUT_U32],
    "KyPortRead": [_HANDLE, _BYTES, c_uint32, _OUT_U32, c_uint32],
    "KyPortFlushRxBuffer": [_HANDLE], "KyPortGetRxBytesReady": [_HANDLE, _OUT_U32],
    "KyPortGetRxBufferSize": [_HANDLE, _OUT_U32], "KyPortSetRxBufferSize": [_HANDLE, c_uint32],
    "KyPortIsSupported": [_HANDLE, c_int32, _OUT_I32],
    "KyI2CBusCreate": [_OUT_U64], "KyI2CBusDestroy": [_HANDLE],
    "KyI2CBusOpen": [_HANDLE, _HANDLE, c_int32], "KyI2CBusClose": [_HANDLE],
    "KyI2CBusIsSupported": [_HANDLE, c_int32, _OUT_I32],
    "KyI2CBusWrite": [_HANDLE, c_uint8, _BYTES, c_uint32, c_int32, c_int32],
    "KyI2CBusRead": [_HANDLE, c_uint8, _BYTES, c_uint32, _OUT_U32, c_int32, c_int32],
    "KyI2CBusIndirectWrite": [_HANDLE, c_uint8, c_uint8, _BYTES, c_uint32, c_int32],
    "KyI2CBusIndirectRead": [_HANDLE, c_uint8, c_uint8, _BYTES, c_uint32, _OUT_U32, c_int32, c_int32],
    "KySPIBusCreate": [_OUT_U64], "KySPIBusDestroy": [_HANDLE],
    "KySPIBusOpen": [_HANDLE, _HANDLE, c_int32], "KySPIBusClose": [_HANDLE],
    "KySPIBusIsSupported": [_HANDLE, c_int32, _OUT_I32],
    "KySPIBusTransfer": [_HANDLE, _BYTES, c_uint32, c_uint32, c_int32, c_int32],
    "KySPIBusRead": [_HANDLE, _BYTES, c_uint32, _OUT_U32, c_uint32],
    "KyBridgeCreate": [_OUT_U64], "KyBridgeDestroy": [_HANDLE],
    "KyBridgeSetObserver": [_HANDLE, POINTER(BridgeObserver)],
    "KyBridgeSetReconnect": [_HANDLE, c_int32, c_void_p, c_void_p],
    "KyBridgeStartHost": [_HANDLE, _TEXT, POINTER(LineSettings), _HANDLE, c_int32],
    "KyBridgeStartClients": [_HANDLE, _TEXT, _HANDLE, c_int32],
    "KyBridgeStopAndGetFlows": [_HANDLE, POINTER(BridgeFlow), POINTER(BridgeFlow)],
    "KyBridgeGetFlows": [_HANDLE, POINTER(BridgeFlow), POINTER(BridgeFlow)],
    "KyBridgeStop": [_HANDLE], "KyBridgeRecover": [_HANDLE],
    "KyBridgeSetLineSettings": [_HANDLE, POINTER(LineSettings)],
    "KyBridgeGetLineSettings": [_HANDLE, POINTER(LineSettings)],
    "KyBridgeSetHardCodedBaudRate": [_HANDLE, c_uint32],
    "KyBridgeGetHardCodedBaudRate": [_HANDLE, _OUT_U32],
    "KyBridgeGetSupportedBaudRateCount": [_HANDLE, _OUT_U32],
    "KyBridgeGetSupportedBaudRate": [_HANDLE, c_uint32, _OUT_U32],
    "KyBridgeGetBaudRate": [_HANDLE, _OUT_U32],
    "KyBridgeGetName": [_HANDLE, c_char_p, _OUT_U32], "KyBridgeGetHostPort": [_HANDLE, c_char_p, _OUT_U32],
    "KyBridgeGetDevicePort": [_HANDLE, _OUT_I32],
    "KyBridgeGetStatistics": [_HANDLE, _OUT_U64, _OUT_U64], "KyBridgeResetStatistics": [_HANDLE],
    "KyLogSetSink": [c_void_p, c_void_p], "KyLogSetPriority": [c_int32],
}

_SIM_SIGNATURES = {
    "KySimOptionsInit": [POINTER(SimOptions)],
    "KySimCameraCreate": [POINTER(SimOptions), _OUT_U64], "KySimCameraDestroy": [_HANDLE],
    "KySimCameraGetAdapter": [_HANDLE, POINTER(Adapter)],
    "KySimCameraPlug": [_HANDLE, c_int32, c_int32],
    "KySimCameraInject": [_HANDLE, c_int32, _BYTES, c_uint32],
    "KySimCameraTakeWire": [_HANDLE, c_int32, _BYTES, c_uint32, _OUT_U32],
    "KySimCameraSetConnected": [_HANDLE, c_int32], "KySimCameraWaitForEvents": [_HANDLE],
}

_CAMERA_SIGNATURES = {
    "KyCameraSearchInit": [POINTER(CameraSearch)],
    "KyCameraFind": [POINTER(CameraSearch), FOUND_FUNCTION, c_void_p, _OUT_U32],
    "KyCameraOptionsInit": [POINTER(CameraOptions)],
    "KyCameraOpen": [_TEXT, POINTER(CameraOptions), _OUT_U64], "KyCameraClose": [_HANDLE],
    "KyCameraGetDevice": [_HANDLE, _OUT_U64],
    "KyCameraGetInformation": [_HANDLE, FOUND_FUNCTION, c_void_p],
    "KyCameraGetState": [_HANDLE, POINTER(CameraState)],
    "KyCameraWaitForChange": [_HANDLE, POINTER(CameraState), c_uint32], "KyCameraReconnect": [_HANDLE],
    "KyCameraListFeatures": [_HANDLE, FEATURE_FUNCTION, c_void_p, _OUT_U32],
    "KyCameraDescribeFeature": [_HANDLE, _TEXT, FEATURE_FUNCTION, c_void_p],
    "KyCameraListEntries": [_HANDLE, _TEXT, TEXT_FUNCTION, c_void_p],
    "KyCameraGetFeature": [_HANDLE, _TEXT, c_char_p, _OUT_U32], "KyCameraSetFeature": [_HANDLE, _TEXT, _TEXT],
    "KyCameraExecute": [_HANDLE, _TEXT],
}


def _declare(library, signatures):
    for name, arguments in signatures.items():
        function = getattr(library, name)
        function.argtypes = arguments
        function.restype = c_uint32
    return library


lib = _declare(_load("KySerialC"), _SIGNATURES)
lib.KyGetLastText.argtypes, lib.KyGetLastText.restype = [], c_char_p
lib.KySetLastText.argtypes, lib.KySetLastText.restype = [c_char_p], None
lib.KyGetCodeName.argtypes, lib.KyGetCodeName.restype = [c_uint32], c_char_p
lib.KyGetVersion.argtypes, lib.KyGetVersion.restype = [], c_uint32
lib.KyLogGetPriority.argtypes, lib.KyLogGetPriority.restype = [], c_int32

_further = {}


def _loaded(name, signatures):
    if name not in _further:
        _further[name] = _declare(_load(name), signatures)
    return _further[name]


def simulator():
    """The simulated camera's library, loaded when it is first asked for: programs with a camera need none."""
    return _loaded("KySimulatorC", _SIM_SIGNATURES)


def cameras():
    """The library for cameras on the network, loaded when it is first asked for."""
    return _loaded("KyGigEC", _CAMERA_SIGNATURES)
