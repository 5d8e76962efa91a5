# SPDX-License-Identifier: MIT
"""The Zephly chest strap: its session, and its signal processing on NumPy arrays.

    import zephly

    class Application:
        def didReceiveECG(self, sample):
            print(sample)

    queue = zephly.MainQueue()
    session = zephly.Zephly(Application(), zephly.SimulatedStrap(queue))
    queue.run(2)

    filtered = zephly.Engine().processECG(samples)  # a float32 array, 500 samples a second

Not a medical device.
"""

from ._zephly import *  # noqa: F401,F403
from ._zephly import __version__  # noqa: F401
