"""NumPy where it is installed; everything works without it, only slower."""

from __future__ import annotations

from typing import Any

numpy: Any
try:
    import numpy
except ImportError:
    numpy = None
