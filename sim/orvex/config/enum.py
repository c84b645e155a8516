import enum


class HostType(enum.Enum):
    HostOS = "HostOS"
    BMC = "BMC"
