"""The qvrp32 interface against the adapter simulator, through python-can."""

import shutil
import signal
import subprocess
import sys
import time
from pathlib import Path

import can
import pytest

from qvrp32_can import QVRP32Bus
from qvrp32_can.layout import j1939_filter_entry

# Replayed by qvsim in a loop, 10 ms apart; the 11-bit frame has no J1939 form.
REPLAY = [
    ("18FEF100", "0102030405060708"),
    ("18EA17F9", "00EE00"),
    ("0CF00400", "F17D7D0000F07D00"),
    ("7E8", "03410D2A"),
]


def frames(protocol, keep=lambda can_id: True):
    return {
        (int(i, 16), len(i) > 3, bytes.fromhex(d))
        for i, d in REPLAY
        if (protocol == "CAN" or len(i) > 3) and keep(int(i, 16))
    }


def replay_file(folder):
    path = folder / "replay.log"
    path.write_text(
        "".join(f"(0.{10000 * k:06d}) can0 {i}#{d}\n" for k, (i, d) in enumerate(REPLAY))
    )
    return str(path)


def key(message):
    return message.arbitration_id, message.is_extended_id, bytes(message.data)


@pytest.mark.parametrize(
    "protocol, can_filters, keep",
    [
        ("CAN", None, lambda i: True),
        ("J1939", None, lambda i: True),
        # Goes to the adapter as a J1939 PGN filter; python-can filters too.
        ("J1939", [{"can_id": 0x18FEF100, "can_mask": 0x3FFFF00}], lambda i: i == 0x18FEF100),
    ],
)
def test_recv_returns_the_traffic_with_rising_time_stamps(
    simulator, tmp_path, protocol, can_filters, keep
):
    simulator("--replay", replay_file(tmp_path))
    expected = frames(protocol, keep)
    with can.Bus(
        interface="qvrp32", channel=1, protocol=protocol, bitrate=500000, can_filters=can_filters
    ) as bus:
        assert isinstance(bus, QVRP32Bus)
        started = time.monotonic()
        messages = [bus.recv(2.0) for _ in range(3 * len(expected))]
        elapsed = time.monotonic() - started
    assert None not in messages
    assert {key(m) for m in messages} == expected
    assert all(m.is_rx and not m.is_fd for m in messages)
    stamps = [m.timestamp for m in messages]
    assert stamps == sorted(stamps)
    assert 0 < stamps[-1] - stamps[0] <= elapsed + 0.01  # seconds, not milliseconds


def test_j1939_messages_over_8_bytes_are_fd_frames_up_to_64(simulator, caplog):
    sim = simulator()
    with can.Bus(interface="qvrp32", channel=1, protocol="J1939") as bus:
        for size in (20, 65, 64, 3):
            # PGN EF00 (PDU1) to 00 from F9, priority 6.
            sim.command("message 18 00EF00 06 F9 00 " + bytes(range(size)).hex())
        received = [bus.recv(2.0) for _ in range(3)]
        assert bus.recv(0.3) is None
        assert bus.skipped == 1
    assert [(m.arbitration_id, bytes(m.data), m.is_fd) for m in received] == [
        (0x18EF00F9, bytes(range(20)), True),
        (0x18EF00F9, bytes(range(64)), True),
        (0x18EF00F9, bytes(range(3)), False),
    ]
    assert "65 data bytes" in caplog.text


@pytest.mark.parametrize(
    "protocol, bitrate, own, can_id, extended, data, rp1210",
    [
        ("CAN:Baud=500", 500000, True, 0x18FEF1F9, True, "0102", "01 18 FE F1 F9 01 02"),
        ("CAN:Baud=250", 250000, False, 0x7DF, False, "02010D", "00 07 DF 02 01 0D"),
        ("J2284:Baud=Auto", "auto", True, 0x123, False, "AABB", "00 01 23 AA BB"),
        ("J1939", None, True, 0x18EA17F9, True, "00EE00", "00 EA 00 06 F9 17 00 EE 00"),
        ("J1939:Baud=Auto", 0, False, 0x0CF004F9, True, "0102", "04 F0 00 03 F9 FF 01 02"),
    ],
)
def test_send_reaches_the_adapter_and_comes_back_as_echo(
    simulator, tmp_path, protocol, bitrate, own, can_id, extended, data, rp1210
):
    # The driver's trace shows the connect and each message as sent;
    # DebugMode=1 appends, so that the next connect flushes the buffered log
    # instead of emptying it.
    config = tmp_path / "ProgramData/QV/Corvane"
    config.mkdir(parents=True)
    (config / "COMConfig.ini").write_text("[COMConfig]\nDebugLevel=3\nDebugMode=1\n")
    sim = simulator("--loopback")
    link = protocol.split(":")[0]
    with QVRP32Bus(protocol=link, bitrate=bitrate, receive_own_messages=own) as bus:
        started, cpu = time.monotonic(), time.process_time()
        assert bus.recv(0.5) is None
        # The timeout holds, and waiting costs no processor time.
        assert 0.45 <= time.monotonic() - started < 1.5
        assert time.process_time() - cpu < 0.2
        bus.send(can.Message(arbitration_id=can_id, is_extended_id=extended, data=bytes.fromhex(data)))
        got = [bus.recv(2.0) for _ in range(2 if own else 1)]
        assert bus.recv(0.3) is None
    # The echo and the adapter's loopback of what it was sent, in either
    # order: a read in progress may take the loopback before the echo exists.
    sent = (can_id, extended, bytes.fromhex(data))
    assert sorted((key(m), m.is_rx) for m in got) == [(sent, False)] * own + [(sent, True)]
    can.Bus(interface="qvrp32", protocol=link).shutdown()
    size = len(rp1210.split())
    assert f"RP1210_ClientConnect(0,1,{protocol}(Res120" in sim.log()
    assert f"RP1210_SendMessage(1,{{...}},{size},0,1):(0:NO_ERRORS)->: {rp1210}\n" in sim.log()


@pytest.mark.parametrize("suffix", ["log", "asc"])
def test_can_logger_writes_a_log_that_python_can_reads_back(simulator, tmp_path, suffix):
    simulator("--replay", replay_file(tmp_path))
    out = tmp_path / f"bus.{suffix}"
    logger = subprocess.Popen(
        [sys.executable, "-m", "can.logger", "-i", "qvrp32", "-c", "1", "-b", "500000", "-f", str(out)],
        stdout=subprocess.PIPE,
        stderr=subprocess.PIPE,
        text=True,
    )
    # It says when it has connected and started logging.
    assert any(line.startswith("Can Logger") for line in logger.stdout), logger.stderr.read()
    time.sleep(1.0)
    logger.send_signal(signal.SIGINT)
    assert logger.wait(timeout=10) == 0, logger.stderr.read()
    logged = list(can.LogReader(str(out)))
    assert len(logged) > 20
    assert {key(m) for m in logged} == frames("CAN")
    stamps = [m.timestamp for m in logged]
    assert stamps == sorted(stamps)


@pytest.mark.parametrize(
    "vendor_ini, code, text",
    [(False, 202, "Can't find ini file"), (True, 142, "CLIENT no working or communicate error.")],
)
def test_connect_errors_carry_the_driver_text(driver_env, vendor_ini, code, text):
    if vendor_ini:
        (driver_env / "Windows").mkdir()
        shutil.copy(Path(__file__).parents[2] / "dist" / "QVRP32.ini", driver_env / "Windows")
    with pytest.raises(can.CanInitializationError) as raised:
        can.Bus(interface="qvrp32", channel=1)
    assert raised.value.error_code == code
    assert text in str(raised.value)


@pytest.mark.parametrize(
    "can_filter, entry",
    [
        ({"can_id": 0x18FEF100, "can_mask": 0x3FFFF00}, "01 F1FE00 00 00 00"),
        ({"can_id": 0x18EA00F9, "can_mask": 0x3FFFFFF}, "0D 00EA00 00 F9 00"),
        ({"can_id": 0x18EA0000, "can_mask": 0x3FF0000}, "01 00EA00 00 00 00"),
        ({"can_id": 0x123456F9, "can_mask": 0xFF, "extended": True}, "04 000000 00 F9 00"),
        ({"can_id": 0x18FE0000, "can_mask": 0x3FF0000}, None),  # a group of PDU2 PGNs
        ({"can_id": 0x18EA0000, "can_mask": 0x3FFF000}, None),  # half a destination
        ({"can_id": 0x18000000, "can_mask": 0x1C000000}, None),  # priority
        ({"can_id": 0xF0, "can_mask": 0xF0}, None),
        ({"can_id": 0x7E8, "can_mask": 0x7FF, "extended": False}, None),
        ({"can_id": 0, "can_mask": 0}, None),
    ],
)
def test_j1939_filters_the_adapter_can_apply(can_filter, entry):
    assert j1939_filter_entry(can_filter) == (entry and bytes.fromhex(entry))
