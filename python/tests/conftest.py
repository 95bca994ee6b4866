"""What the tests share."""

from __future__ import annotations

import sys
from pathlib import Path

from hypothesis import settings

sys.path[:0] = [str(Path(__file__).parents[1]), str(Path(__file__).parent)]

# A busy machine is no reason to fail.
settings.register_profile("default", deadline=None)
settings.load_profile("default")
