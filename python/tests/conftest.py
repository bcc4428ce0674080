"""The adapter simulator as a fixture: qvsim --root prepares a QVRP32_ROOT."""

import os
import pathlib
import subprocess

import pytest

BUILD = pathlib.Path(
    os.environ.get("QVRP32_BUILD", pathlib.Path(__file__).resolve().parents[2] / "build" / "linux")
)
LIBRARY = BUILD / "libqvrp32.so"
QVSIM = BUILD / "tools" / "simulator" / "qvsim"


class Simulator:
    def __init__(self, root, *options):
        self.root = root
        self.process = subprocess.Popen(
            [str(QVSIM), "--root", str(root), *options],
            stdin=subprocess.PIPE,
            stdout=subprocess.PIPE,
            text=True,
        )
        for line in self.process.stdout:
            if line.startswith("running"):
                return
        raise RuntimeError(f"qvsim did not start: exit {self.process.wait()}")

    def command(self, line):
        """A line for qvsim's console, e.g. "message HEX.."."""
        self.process.stdin.write(line + "\n")
        self.process.stdin.flush()

    def log(self):
        return (self.root / "ProgramData/QV/log/QVRP1210_log.txt").read_text(errors="replace")

    def stop(self):
        self.process.terminate()
        self.process.wait(timeout=5)


@pytest.fixture
def driver_env(tmp_path, monkeypatch):
    for path in (LIBRARY, QVSIM):
        assert path.exists(), f"{path} is missing: build the linux preset first"
    monkeypatch.setenv("QVRP32_LIBRARY", str(LIBRARY))
    monkeypatch.setenv("QVRP32_ROOT", str(tmp_path))
    return tmp_path


@pytest.fixture
def simulator(driver_env):
    """simulator(*qvsim options) starts qvsim on the test's QVRP32_ROOT."""
    started = []

    def start(*options):
        started.append(Simulator(driver_env, *options))
        return started[-1]

    yield start
    for sim in started:
        sim.stop()

