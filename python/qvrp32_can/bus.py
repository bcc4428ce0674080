"""The qvrp32 python-can interface: one RP1210 client of the QVRP32 driver."""

import collections
import ctypes
import logging
import queue
import threading
import time

import can

from . import layout
from .driver import (
    CMD_ECHO_TRANSMITTED_MESSAGES,
    CMD_SET_ALL_FILTERS_TO_DISCARD,
    CMD_SET_ALL_FILTERS_TO_PASS,
    CMD_SET_MESSAGE_FILTERING_FOR_J1939,
    ERR_CLIENT_DISCONNECTED,
    Driver,
    default_library,
)

log = logging.getLogger("can.qvrp32")

# Room for the longest J1939 message (1785 data bytes) and then some.
READ_BUFFER_BYTES = 4128
J1939_FILTER_ENTRIES = 12
_NOTHING = object()


def _baud_text(bitrate, auto_bitrate):
    if auto_bitrate or bitrate == 0 or str(bitrate).lower() == "auto":
        return ":Baud=Auto"
    if bitrate is None:
        return ""  # the protocol's default rate
    rate = int(bitrate)
    if rate <= 0 or rate % 1000:
        raise ValueError(f"bitrate must be a whole number of kbit/s in bit/s, not {bitrate!r}")
    return f":Baud={rate // 1000}"


class QVRP32Bus(can.BusABC):
    """A QV adapter through the QVRP32 RP1210 driver.

    :param channel: the RP1210 device id (1 for the first adapter).
    :param protocol: "CAN" (default), "J1939" or "J2284".
    :param bitrate: bit/s; "auto" or 0 lets the adapter detect the rate (also
        auto_bitrate=True); None keeps the protocol's default.
    :param library: path of the driver; default QVRP32_LIBRARY, else
        libqvrp32.so from the loader's search path, or on Windows QVRP32.dll
        when RP121032.ini lists it.
    :param receive_own_messages: return sent messages (is_rx False).
    """

    def __init__(
        self,
        channel=1,
        can_filters=None,
        protocol="CAN",
        bitrate=None,
        library=None,
        receive_own_messages=False,
        auto_bitrate=False,
        **kwargs,
    ):
        self.protocol = str(protocol).upper()
        if self.protocol not in layout.PROTOCOL_IDS:
            raise ValueError(f"protocol must be CAN, J1939 or J2284, not {protocol!r}")
        self._protocol_id = layout.PROTOCOL_IDS[self.protocol]
        try:
            device_id = int(channel)
        except (TypeError, ValueError):
            raise ValueError(f"channel is the RP1210 device id, a number, not {channel!r}") from None
        protocol_text = self.protocol + _baud_text(bitrate, auto_bitrate)
        path = library or default_library()
        try:
            self._driver = Driver(path)
        except (OSError, AttributeError) as error:
            raise can.CanInterfaceNotImplementedError(
                f"cannot load the QVRP32 driver {path}: {error}"
            ) from error

        client = self._driver.ClientConnect(None, device_id, protocol_text.encode(), 0, 0, 0)
        if not 0 < client < 128:
            text = self._driver.error_text(client)
            raise can.CanInitializationError(f"RP1210_ClientConnect({protocol_text}): {text}", client)
        self._client = client
        self._closed = False
        self.channel = device_id
        self.channel_info = f"QVRP32 device {device_id}, {protocol_text}"
        self.receive_own_messages = bool(receive_own_messages)
        # Messages sent and not yet echoed; the driver keeps one echo, so an
        # echo also settles every message sent before it.
        self._unechoed = collections.deque(maxlen=32)
        self._unechoed_lock = threading.Lock()
        self._epoch = 0
        self._last_stamp = None
        self.skipped = 0
        self._hardware_filters = False
        # A blocking read runs on the waiter thread so that recv() can give up
        # at its timeout; only one read is ever in progress.
        self._results = queue.Queue()
        self._wanted = threading.Event()
        self._in_flight = False
        self._recv_buffer = ctypes.create_string_buffer(READ_BUFFER_BYTES)
        self._wait_buffer = ctypes.create_string_buffer(READ_BUFFER_BYTES)
        try:
            self._command(CMD_SET_ALL_FILTERS_TO_PASS, error=can.CanInitializationError)
            if self.receive_own_messages:
                self._command(CMD_ECHO_TRANSMITTED_MESSAGES, b"\x01", can.CanInitializationError)
            super().__init__(channel, can_filters=can_filters, **kwargs)
        except Exception:
            self._closed = True
            self._driver.ClientDisconnect(self._client)
            raise
        self._waiter = threading.Thread(target=self._wait_loop, name="qvrp32-read", daemon=True)
        self._waiter.start()

    def _command(self, number, parameters=b"", error=can.CanOperationError):
        buffer = ctypes.create_string_buffer(parameters, max(1, len(parameters)))
        code = self._driver.SendCommand(number, self._client, buffer, len(parameters))
        if code != 0:
            raise error(f"RP1210_SendCommand({number}): {self._driver.error_text(code)}", code)

    def _apply_filters(self, filters):
        # Other data links pass everything; python-can filters in software,
        # which also covers what the adapter's J1939 filters let through.
        if self._protocol_id != layout.J1939:
            return
        entries = [layout.j1939_filter_entry(f) for f in filters or ()]
        entries = list(dict.fromkeys(entries))
        if not entries or None in entries or len(entries) > J1939_FILTER_ENTRIES:
            if self._hardware_filters:
                self._command(CMD_SET_ALL_FILTERS_TO_PASS)
                self._hardware_filters = False
            return
        self._command(CMD_SET_ALL_FILTERS_TO_DISCARD)
        self._hardware_filters = True
        for entry in entries:
            self._command(CMD_SET_MESSAGE_FILTERING_FOR_J1939, entry)

    def send(self, msg, timeout=None):
        if msg.is_remote_frame or msg.is_error_frame:
            raise can.CanOperationError("the adapter sends data frames only")
        try:
            message = layout.encode(
                self._protocol_id, msg.arbitration_id, msg.is_extended_id, msg.data
            )
        except (ValueError, OverflowError) as error:
            raise can.CanOperationError(f"cannot send {msg}: {error}") from error
        if len(message) > READ_BUFFER_BYTES:
            raise can.CanOperationError(f"cannot send {len(msg.data)} data bytes")
        if self.receive_own_messages:
            with self._unechoed_lock:
                self._unechoed.append(message)
        code = self._driver.SendMessage(self._client, message, len(message), 0, 1)
        if code != 0:
            if self.receive_own_messages:
                with self._unechoed_lock:
                    if message in self._unechoed:
                        self._unechoed.remove(message)
            raise can.CanOperationError(f"RP1210_SendMessage: {self._driver.error_text(code)}", code)

    def _recv_internal(self, timeout):
        deadline = None if timeout is None else time.monotonic() + timeout
        while True:
            if self._in_flight:
                left = None if deadline is None else max(0.0, deadline - time.monotonic())
                try:
                    result = self._results.get(timeout=left)
                except queue.Empty:
                    return None, False
                self._in_flight = False
            else:
                result = self._read(self._recv_buffer, block=False)
                if result is _NOTHING and (deadline is None or time.monotonic() < deadline):
                    self._in_flight = True
                    self._wanted.set()
                    continue
            if isinstance(result, Exception):
                raise result
            if result is not _NOTHING:
                return result, False
            if deadline is not None and time.monotonic() >= deadline:
                return None, False

    def _wait_loop(self):
        while True:
            self._wanted.wait()
            self._wanted.clear()
            if self._closed:
                return
            self._results.put(self._read(self._wait_buffer, block=True))

    def _read(self, buffer, block):
        """One RP1210_ReadMessage: a can.Message, _NOTHING or an exception."""
        n = self._driver.ReadMessage(self._client, buffer, len(buffer), 1 if block else 0)
        if n < 0:
            code = -n
            if block and code == ERR_CLIENT_DISCONNECTED and not self._closed:
                # A J1939 client's blocking read that times out says 148 as
                # well; a non-blocking read tells a real disconnect apart.
                return self._read(buffer, block=False)
            text = self._driver.error_text(code)
            return can.CanOperationError(f"RP1210_ReadMessage: {text}", code)
        if n == 0:
            return _NOTHING
        message = self._message(buffer.raw[:n])
        return _NOTHING if message is None else message

    def _message(self, raw):
        timestamp = self._seconds(int.from_bytes(raw[: layout.TIME_STAMP_BYTES], "big"))
        body = raw[layout.TIME_STAMP_BYTES :]
        echo = (
            self.receive_own_messages
            and body[:1] == bytes([layout.ECHO_MARKER])
            and self._settle_echo(body[1:])
        )
        fields = layout.decode(self._protocol_id, body[1:] if echo else body)
        if fields is None:
            return None
        can_id, extended, data = fields
        if len(data) > layout.CAN_FD_MAX:
            self.skipped += 1
            log.warning(
                "skipped a message of %d data bytes, more than a CAN FD frame holds (%d skipped)",
                len(data),
                self.skipped,
            )
            return None
        return can.Message(
            timestamp=timestamp,
            arbitration_id=can_id,
            is_extended_id=extended,
            data=data,
            is_fd=len(data) > 8,
            is_rx=not echo,
            channel=self.channel,
        )

    def _settle_echo(self, sent):
        with self._unechoed_lock:
            if sent not in self._unechoed:
                return False
            while self._unechoed.popleft() != sent:
                pass
            return True

    def _seconds(self, stamp):
        # The driver's millisecond counter is 32 bits: count its wraps.
        if self._last_stamp is not None and self._last_stamp - stamp > 0x80000000:
            self._epoch += 1
        self._last_stamp = stamp
        return ((self._epoch << 32) + stamp) / 1000.0

    def shutdown(self):
        if self._closed:
            return
        self._closed = True
        super().shutdown()
        code = self._driver.ClientDisconnect(self._client)
        self._wanted.set()
        self._waiter.join(timeout=5)
        if code != 0:
            log.warning("RP1210_ClientDisconnect: %s", self._driver.error_text(code))
