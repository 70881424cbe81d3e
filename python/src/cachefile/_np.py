"""NumPy, or None if it is not installed. Everything works without it, but slower."""

from __future__ import annotations

from typing import Any

numpy: Any
try:
    import numpy
except ImportError:
    numpy = None
