"""Generic host commands and the base of the per-tool views."""
import datetime

from orvex_sim.simhost.model import NotFound, Refused, parse_size_gb

DRIVERS = {"sorbdrv": "1.2.0.8", "megaraid_sas": "07.714.04.00-rc1", "smartpqi": "2.1.20-035"}


class ToolView:
    """Translates one tool's wrappers for one controller (`m`) of `host`:
    `WRAPPERS` maps each wrapper name to its handler(view, params), which
    calls the model and draws the tool's answer (None: the tool's success
    text)."""

    OK = "success"
    WRAPPERS = {}

    def __init__(self, host, controller=None):
        self.host = host
        self.m = controller

    def failure(self, reason):
        return "fail: %s" % reason

    # -- reading the wrapper's parameters (a Refused changes nothing) -----------------------
    def drive(self, p, eid="eid", sid="sid"):
        if p.get(eid) is None or p.get(sid) is None:
            raise Refused("no drive given")
        return self.m.drive(p[eid], p[sid])

    def vd(self, p, key="vid"):
        if p.get(key) is None:
            raise Refused("no virtual drive given")
        return self.m.vd(p[key])

    @staticmethod
    def known(find, p):
        """`find(p)` for a query: what does not exist is NotFound, not refused."""
        try:
            return find(p)
        except Refused as why:
            raise NotFound(str(why))

    def need(self, p, key):
        value = p.get(key)
        if value is None or value == "":
            raise Refused("%s is required" % key)
        return value

    def some(self, p, *keys):
        present = [k for k in keys if k in p]
        if not present:
            raise Refused("%s is required" % " or ".join(keys))
        return present

    def size_gb(self, p):
        return parse_size_gb(self.need(p, "size"))

    def choice(self, p, key, allowed):
        """The parameter's word, lower case, one of `allowed`; a dict of
        `allowed` words gives the model's value for it."""
        value = p.get(key)
        text = str(value).lower() if value is not None else None
        if text not in allowed:
            raise Refused("%s=%s is not one of %s" % (key, value, "/".join(allowed)))
        return allowed[text] if isinstance(allowed, dict) else text

    def minutes_left(self, task):
        return "%d Minutes" % ((task.seconds_left + 59) // 60) if task else "-"


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


HostCommands.WRAPPERS = {name: getattr(HostCommands, name) for name in (
    "cat", "hexdump", "rm", "modinfo", "system_clock")}
