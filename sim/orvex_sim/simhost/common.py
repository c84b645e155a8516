"""Generic host commands and the base of the per-tool views."""
import datetime

from orvex_sim.simhost.model import NotFound, Refused

DRIVERS = {"sorbdrv": "1.2.0.8", "megaraid_sas": "07.714.04.00-rc1", "smartpqi": "2.1.20-035"}


def wrappers(cls):
    """Class decorator: WRAPPERS = the public method names defined on the class
    and its bases (each one a wrapper the host answers)."""
    names = set()
    for klass in cls.__mro__:
        names.update(n for n, v in vars(klass).items()
                     if callable(v) and not n.startswith("_") and n not in _NOT_WRAPPERS)
    cls.WRAPPERS = frozenset(names)
    return cls


_NOT_WRAPPERS = {"failure", "success", "drive", "vd", "need", "choice", "minutes_left"}


class ToolView:
    """Shared helpers of the tool views; `host.model` is the controller."""

    OK = "success"

    def __init__(self, host):
        self.host = host
        self.m = host.model

    def success(self):
        return self.OK

    def failure(self, reason):
        return "fail: %s" % reason

    # -- request checking (a Refused changes nothing) -------------------------------
    def drive(self, p, eid="eid", sid="sid"):
        if p.get(eid) is None or p.get(sid) is None:
            raise Refused("no drive given")
        return self.m.drive(p[eid], p[sid])

    def vd(self, p, key="vid"):
        if p.get(key) is None:
            raise Refused("no virtual drive given")
        return self.m.vd(p[key])

    def need(self, p, key):
        value = p.get(key)
        if value is None or value == "":
            raise Refused("%s is required" % key)
        return value

    def choice(self, p, key, allowed):
        value = p.get(key)
        text = str(value).lower() if value is not None else None
        if text not in allowed:
            raise Refused("%s=%s is not one of %s" % (key, value, "/".join(allowed)))
        return text

    # -- array reshaping, started as background tasks ---------------------------------
    def grow_vd(self, p, refusal):
        """Adds `size` to the virtual drive when its drives have the room."""
        from orvex_sim.simhost.model import data_drives, parse_size_gb
        vd = self.vd(p)
        grow = parse_size_gb(self.need(p, "size"))
        room = data_drives(vd.level, len(vd.drives), vd.spans) * min(
            d.size_gb for d in vd.drives) - vd.size_gb
        if grow > room + 1e-6:
            raise Refused(refusal % (room, vd.array))

        def done():
            vd.size_gb += grow
        self.m.start_vd_task(vd, "expand", on_done=done)
        return self.OK

    def add_vd_drives(self, p, refusal):
        """Adds free drives to the virtual drive's array."""
        vd = self.vd(p)
        drives = [self.m.find_drive(t) for t in (p.get("drives") or [])]
        if not drives or any(d.state != "ugood" for d in drives):
            raise Refused(refusal)

        def done():
            for d in drives:
                d.vd, d.state = vd, "online"
                vd.drives.append(d)
        self.m.start_vd_task(vd, "expand", on_done=done)
        return self.OK

    def migrate_vd(self, p, level, refusal):
        """Moves the virtual drive to another RAID level its drives allow."""
        from orvex_sim.simhost.model import LEVELS
        vd = self.vd(p)
        if level not in LEVELS or LEVELS[level][0] > len(vd.drives):
            raise Refused(refusal % (vd.vid, level))

        def done():
            vd.level = level
        self.m.start_vd_task(vd, "migrate", on_done=done)
        return self.OK

    def minutes_left(self, task):
        return "%d Minutes" % ((task.seconds_left + 59) // 60) if task else "-"


@wrappers
class HostCommands(ToolView):
    """`cat`, `hexdump`, `rm`, `modinfo` and `system_clock` on the host."""

    def cat(self, p):
        path = self.need(p, "file_path")
        if path not in self.host.files:
            raise NotFound("cat: %s: No such file or directory" % path)
        data = self.host.files[path]
        if isinstance(data, bytes):
            data = data.decode("latin-1")
        return data.splitlines()

    def hexdump(self, p):
        path = self.need(p, "file_path")
        if path not in self.host.files:
            raise NotFound("hexdump: %s: No such file or directory" % path)
        data = self.host.files[path]
        if isinstance(data, str):
            data = data.encode()
        if len(data) % 2:
            data += b"\0"
        lines = []
        for offset in range(0, len(data), 16):
            chunk = data[offset:offset + 16]
            words = ["%02x%02x" % (chunk[i + 1], chunk[i]) for i in range(0, len(chunk), 2)]
            lines.append("%07x %s" % (offset, " ".join(words)))
        lines.append("%07x" % len(data))
        return lines

    def rm(self, p):
        path = self.need(p, "path")
        if path not in self.host.files:
            raise NotFound("rm: cannot remove '%s': No such file or directory" % path)
        del self.host.files[path]
        return ""

    def modinfo(self, p):
        name = self.need(p, "modname")
        if name not in DRIVERS:
            raise NotFound("modinfo: ERROR: Module %s not found." % name)
        return {"filename": "/lib/modules/4.18.0/extra/%s.ko" % name, "version": DRIVERS[name],
                "license": "GPL", "description": "%s RAID controller driver" % name}

    def system_clock(self, p):
        form = str(p.get("formatter") or "+%Y-%m-%d %H:%M:%S").strip('"').lstrip("+")
        return [self.host.clock.strftime(form)]


def clock_text(when):
    return when.strftime("%Y/%m/%d %H:%M:%S")


def parse_clock(text, forms=("%Y%m%d %H:%M:%S", "%Y/%m/%d %H:%M:%S", "%Y-%m-%d %H:%M:%S")):
    for form in forms:
        try:
            return datetime.datetime.strptime(str(text).strip(), form)
        except ValueError:
            pass
    raise Refused("invalid time %r" % (text,))


def passthru_bytes(drive, command):
    """The data a drive returns for a raw command: INQUIRY (0x12) gives the
    standard inquiry page, anything else fixed-format sense data."""
    text = str(command).lower().replace("0x", "")
    if text.split() and text.split()[0] == "12":
        vendor = drive.model[:8].ljust(8).encode()
        product = drive.model.ljust(16)[:16].encode()
        return bytes([0x00, 0x00, 0x06, 0x12, 0x5b, 0x00, 0x10, 0x02]) + vendor + product \
            + drive.fw.ljust(4)[:4].encode()
    return bytes([0x70, 0x00, 0x05, 0x00, 0x00, 0x00, 0x00, 0x0a,
                  0x00, 0x00, 0x00, 0x00, 0x20, 0x00, 0x00, 0x00, 0x00, 0x00])
