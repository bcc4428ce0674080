"""Loading the QVRP32 RP1210 driver with ctypes and calling it."""

import configparser
import ctypes
import os
import sys

# RP1210 command numbers used here.
CMD_SET_ALL_FILTERS_TO_PASS = 3
CMD_SET_MESSAGE_FILTERING_FOR_J1939 = 4
CMD_ECHO_TRANSMITTED_MESSAGES = 16
CMD_SET_ALL_FILTERS_TO_DISCARD = 17

ERR_CLIENT_DISCONNECTED = 148

IMPLEMENTATION = "QVRP32"


def _windows_library():
    """The DLL as RP1210 applications find it: listed in RP121032.ini."""
    windows = os.environ.get("WINDIR", r"C:\Windows")
    parser = configparser.ConfigParser(strict=False, interpolation=None)
    try:
        parser.read(os.path.join(windows, "RP121032.ini"), encoding="latin-1")
    except configparser.Error:
        pass
    listed = parser.get("RP1210Support", "APIImplementations", fallback="")
    if IMPLEMENTATION.upper() in (n.strip().upper() for n in listed.split(",")):
        return IMPLEMENTATION + ".dll"
    raise OSError(
        f"{IMPLEMENTATION} is not listed in APIImplementations of "
        f"{windows}\\RP121032.ini (pass library= with the DLL's path)"
    )


def default_library():
    """QVRP32_LIBRARY when set, else the platform's usual place."""
    explicit = os.environ.get("QVRP32_LIBRARY")
    if explicit:
        return explicit
    if sys.platform == "win32":
        return _windows_library()
    # The dynamic loader's search: LD_LIBRARY_PATH, then the ldconfig cache.
    return "libqvrp32.so"


class Driver:
    """The driver's RP1210 functions with their C signatures."""

    def __init__(self, path):
        loader = ctypes.WinDLL if sys.platform == "win32" else ctypes.CDLL
        self.path = path
        dll = loader(path)
        short, buf, i32 = ctypes.c_short, ctypes.c_char_p, ctypes.c_int32
        signatures = {
            "RP1210_ClientConnect": [ctypes.c_void_p, short, buf, i32, i32, short],
            "RP1210_ClientDisconnect": [short],
            "RP1210_SendMessage": [short, buf, short, short, short],
            "RP1210_ReadMessage": [short, buf, short, short],
            "RP1210_SendCommand": [short, short, buf, short],
            "RP1210_GetErrorMsg": [short, buf],
        }
        for name, argtypes in signatures.items():
            function = getattr(dll, name)
            function.argtypes = argtypes
            function.restype = short
            setattr(self, name[len("RP1210_"):], function)

    def error_text(self, code):
        """The driver's own text for an RP1210 error code."""
        text = ctypes.create_string_buffer(256)
        if self.GetErrorMsg(code, text) != 0:
            return f"RP1210 error {code}"
        return text.value.decode("latin-1")
