"""python-can interface "qvrp32" for QV adapters through the QVRP32 RP1210 driver."""

from .bus import QVRP32Bus

__all__ = ["QVRP32Bus"]
__version__ = "1.0.0"
