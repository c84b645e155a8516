"""Stand-in for the framework's host OS base class.

`HostOSBase` wires an object to the active backend of `orvex_sim` (the
recording double in tests, the simulated host otherwise): `dispatch`,
`host.dispatch` and `dispatcher.dispatch` all reach the backend, which also
answers `dispatcher.get_raid_tool()`.
"""
import logging

import orvex_sim


class _Dispatcher:
    def __init__(self, backend):
        self._backend = backend

    def get_raid_tool(self):
        return self._backend.get_raid_tool()

    def dispatch(self, name, params=None):
        return self._backend.dispatch("dispatcher", name, params)


class _Host:
    def __init__(self, backend):
        self._backend = backend

    def dispatch(self, name, params=None):
        return self._backend.dispatch("host", name, params)


class HostOSBase:
    def __init__(self):
        backend = orvex_sim.current()
        self.backend = backend
        self.dispatcher = _Dispatcher(backend)
        self.host = _Host(backend)
        self.logger = logging.getLogger("orvex.hostos.raid")

    def dispatch(self, name, params=None):
        return self.backend.dispatch("self", name, params)


class _Namespace:
    """Registry of dispatcher types per host kind."""

    def __init__(self):
        self.types = {}

    def dispatchertype(self, host_type):
        def register(cls):
            self.types[host_type] = cls
            return cls

        return register


hostos_ns = _Namespace()
