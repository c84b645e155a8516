"""The state of a simulated host: one RAID controller, its drives behind an
expander backplane, its virtual drives, settings, clock and running tasks.

The model knows nothing of any tool's output format; the per-tool views
(`storcli64.py`, `arcconf.py`, `sorbctl.py`) read it and change it.

Every request is checked first and applied afterwards: a check that fails
raises `Refused` with the tool-neutral reason, and nothing has changed.
"""
import datetime

# Seconds a task needs from 0 % to 100 % at the default rate.
DURATIONS = {
    "init": 60, "bgi": 120, "cc": 90, "vd_erase": 120, "expand": 150, "migrate": 150,
    "rebuild": 80, "copyback": 80, "erase": 120, "sanitize": 180, "patrol": 100,
}
ERASE_SECONDS = {"simple": 60, "normal": 120, "thorough": 240}

# Drives a level needs at least, and whether the count must be even.
LEVELS = {
    "0": (1, False), "1": (2, True), "5": (3, False), "6": (4, False),
    "10": (4, True), "50": (6, False), "60": (8, False),
}
# Member drives a virtual drive can lose and still serve its data.
TOLERANCE = {"0": 0, "1": 1, "5": 1, "6": 2, "10": 1, "50": 1, "60": 2}
PARITY = ("5", "6", "50", "60")
STRIPS_KB = (8, 16, 32, 64, 128, 256, 512, 1024)


class Refused(Exception):
    """A request the controller refuses; the model is unchanged."""


class NotFound(Exception):
    """A query naming something that does not exist."""


def data_drives(level, count, spans=1):
    if level == "0":
        return count
    if level in ("1", "10"):
        return count // 2
    if level == "5":
        return count - 1
    if level == "6":
        return count - 2
    if level == "50":
        return count - spans
    if level == "60":
        return count - 2 * spans
    return count


def parse_size_gb(text):
    """'100GB', '100 MB', '1.5TB' -> gigabytes (float)."""
    value = str(text).strip().upper().replace(" ", "")
    for unit, factor in (("TB", 1024.0), ("GB", 1.0), ("MB", 1 / 1024.0)):
        if value.endswith(unit):
            number = value[: -len(unit)]
            try:
                return float(number) * factor
            except ValueError:
                break
    raise Refused("invalid size %r (use e.g. 100MB, 100GB, 1TB)" % (text,))


class Task:
    """A background operation; `progress` runs from 0 to 100."""

    def __init__(self, kind, seconds, on_done=None):
        self.kind = kind
        self.seconds = float(seconds)
        self.progress = 0.0
        self.paused = False
        self.on_done = on_done
        self.elapsed = 0.0

    def tick(self, dt, rate=1.0):
        if self.paused or self.progress >= 100:
            return False
        self.elapsed += dt
        self.progress = min(100.0, self.progress + 100.0 * dt * rate / self.seconds)
        return self.progress >= 100

    @property
    def percent(self):
        return int(self.progress)

    @property
    def seconds_left(self):
        return max(0, int(round(self.seconds * (100.0 - self.progress) / 100.0)))


class Drive:
    def __init__(self, eid, sid, did, interface, media, size_gb, model, serial, fw,
                 link_gbps, sas_address, physical_sector=4096):
        self.eid, self.sid, self.did = str(eid), str(sid), did
        self.interface, self.media, self.size_gb = interface, media, float(size_gb)
        self.model, self.serial, self.fw = model, serial, fw
        self.link_gbps = link_gbps
        self.sas_address = sas_address
        self.logical_sector, self.physical_sector = 512, physical_sector
        # ugood, online, offline, failed, rebuild, copyback, hotspare, jbod
        self.state = "ugood"
        self.vd = None           # VirtualDrive this drive is a member of
        self.spare_for = None    # None: global spare; else the array number
        self.boot = "off"
        self.leds = {"locate": "off", "err": "off"}
        self.phy_enabled = True
        self.phy_speed = "%sG" % link_gbps
        self.write_cache = "default"
        self.foreign = False
        self.tasks = {}          # kind -> Task

    @property
    def address(self):
        return "%s:%s" % (self.eid, self.sid)

    def task(self, kind):
        return self.tasks.get(kind)


class VirtualDrive:
    def __init__(self, vid, array, level, drives, size_gb, strip_kb, name, spans=1):
        self.vid, self.array, self.level = vid, array, level
        self.drives = list(drives)
        self.size_gb, self.strip_kb, self.name = size_gb, strip_kb, name
        self.spans = spans
        self.write = "WB"        # WT, WB, AWB
        self.read = "RA"         # RA, NoRA
        self.io = "Direct"       # Direct, Cached
        self.pdcache = "default"  # default, on, off
        self.emulation = "default"  # default, none, force
        self.hidden = False
        self.access = "RW"       # RW, RO, Blocked
        self.boot = "off"
        self.autobgi = True
        self.initialised = False
        self.tasks = {}
        self.os_name = ""
        self.wwn = ""

    def task(self, kind):
        return self.tasks.get(kind)

    @property
    def state(self):
        lost = sum(1 for d in self.drives if d.state != "online")
        if lost == 0:
            return "optimal"
        tolerance = TOLERANCE.get(self.level, 0)
        if lost > tolerance:
            return "offline"
        if self.level in ("6", "60") and lost < tolerance:
            return "partially degraded"
        return "degraded"


class Controller:
    """One controller of the host, with the drives behind its backplane."""

    def __init__(self, tool, host_clock):
        self.tool = tool
        self.index = 0
        self.host_clock = host_clock
        self.clock_offset = datetime.timedelta(0)
        self.drives = []
        self.vds = {}
        self.events = []
        self.files_written = []
        self.pending_fw = None
        self.fw_version = {"storcli64": "5.060.00-2262", "arcconf": "4.11",
                           "sorbctl": "1.2.3.0"}[tool]
        self.mode = "3" if tool == "arcconf" else "raid"   # arcconf: 2 HBA, 3 RAID, 5 Mixed
        self.jbod = False
        self.auto_rebuild = True
        self.restart_switch = "on"
        self.restarts = 0
        self.eghs = {"eug": "off", "state": "off", "smarter": "off"}
        self.pinned_cache_boot = "off"
        self.unconfigured_pdcache = "default"
        self.copyback = {"copyback": "on", "smartssd": "off", "smarthdd": "off"}
        self.copyback_rate = "low"
        self.precopy = "off"
        self.rebuild_rate = "high"
        # patrol read
        self.pr_mode = "auto"    # auto, manual, disable
        self.pr_delay_hours = 168
        self.pr_rate = "medium" if tool == "sorbctl" else "30"
        self.pr_pd_count = 2
        self.pr_start_time = ""
        self.pr_ssd = "off"
        self.pr_uncfg = "off"
        self.pr_iterations = 0
        self.pr_running = False
        self.pr_paused = False
        # consistency check schedule
        self.cc_mode = "off"     # off, seq, conc
        self.cc_delay_hours = 168
        self.cc_start = ""
        self.cc_rate = "medium" if tool == "sorbctl" else "30"
        self.cc_repair = "enable"
        self.cc_parallel = 1
        self.cc_excluded = []
        self.cc_iterations = 0
        self.cc_completed = 0
        # supercapacitor
        self.cap_status = "Optimal"
        self.cap_temperature = 28
        self.cap_pack_missing = False
        self.learn_cycle_days = 30
        self.learn_last = None
        self.learn_next = host_clock() + datetime.timedelta(days=30)
        self.learn_task = None
        # slow drives
        self.kick_period = 30
        self.kick_sum = 1
        self.kicked = 0
        self.slow_switch = {"raid": "on", "rawdrive": "on"}
        self.slow_current = _slow_defaults()
        self.slow_next = _slow_defaults()
        self.foreign_groups = 0

    # -- clock and log -------------------------------------------------------------
    def now(self):
        return self.host_clock() + self.clock_offset

    def set_clock(self, when):
        self.clock_offset = when - self.host_clock()

    def log(self, text):
        self.events.append((self.now(), text))

    # -- lookup --------------------------------------------------------------------------
    def drive(self, eid, sid):
        for d in self.drives:
            if d.eid == str(eid) and d.sid == str(sid):
                return d
        raise Refused("drive %s:%s does not exist" % (eid, sid))

    def find_drive(self, text):
        """'252:0', '252,0', '252 0' or a bare slot '0'."""
        text = str(text).strip()
        for sep in (":", ",", " "):
            if sep in text:
                eid, sid = [t.strip() for t in text.split(sep, 1)]
                return self.drive(eid, sid)
        matches = [d for d in self.drives if d.sid == text]
        if len(matches) == 1:
            return matches[0]
        raise Refused("drive %s does not exist" % text)

    def vd(self, vid):
        try:
            number = int(str(vid))
        except ValueError:
            raise Refused("virtual drive %s does not exist" % vid)
        if number not in self.vds:
            raise Refused("virtual drive %s does not exist" % vid)
        return self.vds[number]

    def ordered_vds(self):
        return [self.vds[k] for k in sorted(self.vds)]

    # -- virtual drives ------------------------------------------------------------------
    def check_create(self, level, drive_texts, size=None, strip_kb=None, spans=None):
        level = str(level).upper().replace("RAID", "")
        if level not in LEVELS:
            raise Refused("RAID level %s is not supported" % level)
        if not isinstance(drive_texts, (list, tuple)) or not drive_texts:
            raise Refused("no drives given")
        drives = [self.find_drive(t) for t in drive_texts]
        if len(set(id(d) for d in drives)) != len(drives):
            raise Refused("a drive is named twice")
        for d in drives:
            if d.foreign:
                raise Refused("drive %s holds a foreign configuration" % d.address)
            if d.state != "ugood":
                raise Refused("drive %s is not unconfigured good (%s)" % (d.address, d.state))
        minimum, even = LEVELS[level]
        if len(drives) < minimum or (even and len(drives) % 2):
            raise Refused("RAID %s needs %s%d drives, %d given" % (
                level, "an even number of at least " if even else "at least ", minimum,
                len(drives)))
        if len(set(d.media for d in drives)) > 1:
            raise Refused("HDD and SSD drives cannot be mixed in one virtual drive")
        if len(set(d.interface for d in drives)) > 1:
            raise Refused("SAS and SATA drives cannot be mixed in one virtual drive")
        spans = int(spans or (2 if level in ("50", "60") else 1))
        if level in ("50", "60") and (spans < 2 or len(drives) % spans
                                      or len(drives) // spans < (3 if level == "50" else 4)):
            raise Refused("RAID %s cannot span %d drives in %d spans" % (level, len(drives), spans))
        strip = int(str(strip_kb or 256).upper().replace("KB", "").strip())
        if strip not in STRIPS_KB:
            raise Refused("strip size %s KB is not supported" % strip)
        capacity = data_drives(level, len(drives), spans) * min(d.size_gb for d in drives)
        size_gb = capacity if not size else parse_size_gb(size)
        if size_gb <= 0 or size_gb > capacity + 1e-6:
            raise Refused("size %s exceeds the %.0f GB the drives offer" % (size, capacity))
        return level, drives, size_gb, strip, spans

    def create_vd(self, level, drive_texts, size=None, strip_kb=None, name=None, spans=None,
                  init=None, write=None, read=None):
        level, drives, size_gb, strip, spans = self.check_create(
            level, drive_texts, size, strip_kb, spans)
        vid = 0
        while vid in self.vds:
            vid += 1
        arrays = set(v.array for v in self.vds.values())
        array = 0
        while array in arrays:
            array += 1
        vd = VirtualDrive(vid, array, level, drives, size_gb, strip, name or "", spans)
        if write:
            vd.write = write
        if read:
            vd.read = read
        vd.os_name = "/dev/sd%s" % "bcdefghijklmnop"[vid % 15]
        vd.wwn = "600605b00e6d%04x%016x" % (vid, 0x2A1B3C4D5E6F7081 + vid)
        for d in drives:
            d.state, d.vd = "online", vd
        self.vds[vid] = vd
        if init == "full":
            self.start_vd_task(vd, "init")
        elif level in PARITY and vd.autobgi and init != "none":
            self.start_vd_task(vd, "bgi")
        self.log("VD %d created: RAID %s on %s" % (vid, level, ", ".join(d.address for d in drives)))
        return vd

    def delete_vd(self, vid, force=False):
        vd = self.vd(vid)
        if vd.boot != "off" and not force:
            raise Refused("virtual drive %s is the boot drive; force is needed" % vid)
        for d in vd.drives:
            d.vd = None
            d.state = "ugood" if d.state in ("online", "offline", "rebuild", "copyback") else d.state
            d.tasks.pop("rebuild", None)
            d.tasks.pop("patrol", None)
        for d in self.drives:
            if d.state == "hotspare" and d.spare_for == vd.array:
                d.state, d.spare_for = "ugood", None
            task = d.task("copyback")
            if task is not None and task.source in vd.drives:
                d.state = "ugood"
                d.tasks.pop("copyback")
        del self.vds[vd.vid]
        self.cc_excluded = [v for v in self.cc_excluded if v != vd.vid]
        self.log("VD %d deleted" % vd.vid)

    def start_vd_task(self, vd, kind, seconds=None, on_done=None):
        task = Task(kind, seconds or DURATIONS[kind], on_done)
        vd.tasks[kind] = task
        return task

    # -- drive failures, spares and rebuilds -------------------------------------------
    def spare_for(self, failed):
        vd = failed.vd
        candidates = [d for d in self.drives if d.state == "hotspare"
                      and d.media == failed.media and d.interface == failed.interface
                      and d.size_gb >= min(m.size_gb for m in vd.drives)]
        dedicated = [d for d in candidates if d.spare_for == vd.array]
        pool = dedicated or [d for d in candidates if d.spare_for is None]
        return pool[0] if pool else None

    def fail_drive(self, drive, reason="failed"):
        """A member drive drops out (or an unconfigured drive goes bad)."""
        vd = drive.vd
        drive.tasks.pop("rebuild", None)
        drive.tasks.pop("patrol", None)
        if vd is None:
            drive.state = "failed"
            drive.spare_for = None
            self.log("PD %s %s" % (drive.address, reason))
            return
        spare = self.spare_for(drive) if self.auto_rebuild else None
        if spare is None:
            drive.state = "offline" if reason == "offline" else "failed"
            self.log("PD %s %s; VD %d %s" % (drive.address, reason, vd.vid, vd.state))
            return
        position = vd.drives.index(drive)
        vd.drives[position] = spare
        spare.vd, spare.spare_for = vd, None
        drive.vd = None
        drive.state = "failed"
        self.start_rebuild(spare)
        self.log("PD %s %s; hot spare %s rebuilds VD %d" % (drive.address, reason,
                                                             spare.address, vd.vid))

    def start_rebuild(self, drive):
        drive.state = "rebuild"

        def done():
            drive.state = "online"
            drive.tasks.pop("rebuild", None)
            self.log("PD %s rebuild complete" % drive.address)

        drive.tasks["rebuild"] = Task("rebuild", DURATIONS["rebuild"], done)

    def start_copyback(self, source, target):
        """Copies member `source` onto `target`, which then takes its place."""
        if source.vd is None or source.state != "online":
            raise Refused("drive %s is not an online member" % source.address)
        if target.state not in ("ugood", "hotspare") or target.vd is not None:
            raise Refused("target drive %s is not free" % target.address)
        if target.media != source.media or target.size_gb < source.size_gb:
            raise Refused("target drive %s cannot hold the data of %s" % (target.address,
                                                                          source.address))
        vd = source.vd

        def done():
            position = vd.drives.index(source)
            vd.drives[position] = target
            target.vd, target.state, target.spare_for = vd, "online", None
            source.vd, source.state = None, "ugood"
            self.log("PD %s copyback onto %s complete" % (source.address, target.address))

        task = Task("copyback", DURATIONS["copyback"], done)
        task.source = source
        target.state = "copyback"
        target.tasks["copyback"] = task
        source.copyback_target = target
        return task

    # -- time ----------------------------------------------------------------------------
    def tick(self, dt):
        for vd in list(self.vds.values()):
            for kind, task in list(vd.tasks.items()):
                if task.tick(dt):
                    vd.tasks.pop(kind, None)
                    if task.on_done:
                        task.on_done()
                    if kind in ("init", "bgi"):
                        vd.initialised = True
                    self.log("VD %d %s complete" % (vd.vid, kind))
        for d in self.drives:
            for kind, task in list(d.tasks.items()):
                if task.tick(dt):
                    d.tasks.pop(kind, None)
                    if task.on_done:
                        task.on_done()
                    elif kind != "rebuild":
                        self.log("PD %s %s complete" % (d.address, kind))
        if self.pr_running and not self.pr_paused:
            if not any(d.task("patrol") for d in self.drives):
                self.pr_running = False
                self.pr_iterations += 1
                self.log("patrol read complete")
        if self.learn_task and self.learn_task.tick(dt):
            self.learn_task = None
            self.learn_last = self.now()
            self.learn_next = self.now() + datetime.timedelta(days=self.learn_cycle_days)
            self.log("supercap learn cycle complete")

    # -- patrol read ---------------------------------------------------------------------
    def start_patrol(self, drives=None):
        targets = drives if drives is not None else [
            d for d in self.drives if d.state == "online"
            or (self.pr_uncfg == "on" and d.state == "ugood")]
        if self.pr_ssd != "on" and drives is None:
            targets = [d for d in targets if d.media != "SSD"] or targets
        for d in targets:
            d.tasks["patrol"] = Task("patrol", DURATIONS["patrol"])
        self.pr_running, self.pr_paused = bool(targets), False
        return targets

    def stop_patrol(self, drives=None):
        for d in drives if drives is not None else self.drives:
            d.tasks.pop("patrol", None)
        if drives is None or not any(d.task("patrol") for d in self.drives):
            self.pr_running = self.pr_paused = False


def _slow_defaults():
    return {
        "Raid ratio": "8",
        "Raid Threshold": {"Media": "hdd", "SuSize": "256KB", "L1": "340ms", "L2": "810ms",
                           "L3": "20000ms"},
        "RawDrive Threshold": {"Media": "hdd", "L2": "810ms"},
    }


def default_drives(tool):
    """Eight drives behind the backplane: four SAS HDD, two SAS SSD, two SATA
    HDD; numbered the tool's way (enclosure, slot, device id)."""
    enclosure = {"storcli64": "252", "arcconf": "0", "sorbctl": "65"}[tool]
    specs = [
        ("SAS", "HDD", 1117.8, "ST1200MM0009", "N003"),
        ("SAS", "HDD", 1117.8, "ST1200MM0009", "N003"),
        ("SAS", "HDD", 1117.8, "ST1200MM0009", "N003"),
        ("SAS", "HDD", 1117.8, "ST1200MM0009", "N003"),
        ("SAS", "SSD", 893.75, "KPM5XVUG960G", "0104"),
        ("SAS", "SSD", 893.75, "KPM5XVUG960G", "0104"),
        ("SATA", "HDD", 3726.0, "HUS726T4TALA6L4", "VKGNW40H"),
        ("SATA", "HDD", 3726.0, "HUS726T4TALA6L4", "VKGNW40H"),
    ]
    drives = []
    for slot, (intf, media, size, model, fw) in enumerate(specs):
        drive = Drive(enclosure, slot, 10 + slot if tool != "arcconf" else slot, intf, media,
                      size, model, "WFK%05d" % (31740 + slot * 7), fw,
                      "12.0" if intf == "SAS" else "6.0", "0x5000c500%08x" % (0xA1B2C300 + slot),
                      physical_sector=512 if media == "SSD" else 4096)
        drives.append(drive)
    return drives
