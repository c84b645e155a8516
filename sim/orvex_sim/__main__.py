"""`python -m orvex_sim`: see `orvex_sim.cli`."""
from __future__ import annotations

import sys

from orvex_sim.cli import main

sys.exit(main())
