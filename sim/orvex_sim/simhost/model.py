"""The state of a simulated host's controller: its drives, virtual drives,
settings, clock and running tasks, and every rule that changes them.

The model knows nothing of any tool's output format or vocabulary; a tool's
view (`storcli64.py`, `arcconf.py`, `sorbctl.py`) translates a wrapper's
parameters into a call of the model and draws the tool's answer from it.

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
SANITIZE_MODES = ("cryptoerase", "overwrite", "blockerase")
# What a task is called in a refusal.
TASK_NAMES = {"init": "initialisation", "bgi": "background initialisation",
              "cc": "consistency check", "vd_erase": "erase", "erase": "erase",
              "sanitize": "sanitize", "rebuild": "rebuild", "copyback": "copyback",
              "patrol": "patrol read", "expand": "expansion", "migrate": "migration"}
FIRMWARE = {"controller": (".rom", ".bin", ".img"), "drive": (".bin", ".lod", ".fw")}

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
                 link_gbps, sas_address, physical_sector=4096, size_bytes=None):
        self.eid, self.sid, self.did = str(eid), str(sid), did
        self.interface, self.media, self.size_gb = interface, media, float(size_gb)
        # The capacity the drive reports, in bytes (whole logical sectors);
        # size_gb is the same in binary gigabytes, as the arrays count it.
        self.size_bytes = int(size_bytes if size_bytes is not None
                              else float(size_gb) * 1024 ** 3) // 512 * 512
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
        self.media_errors = 0
        self.predictive = 0      # predictive failure count (S.M.A.R.T. alert when > 0)
        self.tasks = {}          # kind -> Task

    @property
    def address(self):
        return "%s:%s" % (self.eid, self.sid)

    @property
    def label(self):
        return "drive " + self.address

    @property
    def sectors(self):
        """Logical sectors of the drive, as the tools count them."""
        return self.size_bytes // self.logical_sector

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
    def label(self):
        return "VD %d" % self.vid

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
    """One controller of the host with its drives; `hba`: an HBA in IT mode,
    whose drives pass straight through and which builds no arrays."""

    def __init__(self, tool, host_clock, index=0, hba=False):
        self.tool = tool
        self.index = index
        self.hba = hba
        self.card = {}           # what a host file says of the card: model, pcie, roc, ...
        self.host_clock = host_clock
        self.clock_offset = datetime.timedelta(0)
        self.drives = []
        self.vds = {}
        self.events = []
        self.pending_fw = None
        self.fw_version = {"storcli64": "5.060.00-2262", "arcconf": "4.11",
                           "sorbctl": "1.2.3.0"}[tool]
        # arcconf's controller mode: 2 HBA, 3 RAID, 5 Mixed
        self.mode = "2" if hba else "3" if tool == "arcconf" else "raid"
        self.jbod = hba
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
        self.pr_pd_count = 255 if tool == "storcli64" else 2
        self.pr_pd_limit = 255 if tool == "storcli64" else 32
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

    def configure(self, **settings):
        """Controller settings that no rule constrains (switches, rates)."""
        for name, value in settings.items():
            if not hasattr(self, name):
                raise AttributeError(name)
            setattr(self, name, value)

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
        if self.hba:
            raise Refused("the controller is an HBA in IT mode; it builds no arrays")
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


    def copyback_control(self, drive, oper, target=None):
        """start (onto `target`), stop, pause or resume the copyback of `drive`."""
        if oper == "start":
            if self.copyback["copyback"] != "on":
                raise Refused("copyback is disabled on the controller")
            return self.start_copyback(drive, target)
        owner = getattr(drive, "copyback_target", None) or drive
        if oper == "stop" and owner.task("copyback"):
            owner.state = "ugood"
        return self.control(owner, "copyback", oper)

    # -- tasks of a drive or a virtual drive -----------------------------------------------
    def control(self, owner, kind, oper):
        """stop, pause or resume the running `kind` task of `owner`."""
        task = owner.task(kind)
        if task is None:
            raise Refused("no %s in progress on %s" % (TASK_NAMES[kind], owner.label))
        if oper == "stop":
            owner.tasks.pop(kind)
        elif task.paused == (oper == "pause"):
            raise Refused("%s on %s is %s paused" % (TASK_NAMES[kind], owner.label,
                                                     "already" if task.paused else "not"))
        else:
            task.paused = oper == "pause"

    def drive_task(self, drive, kind, oper="start", mode=None):
        """Erase or sanitize of a free drive: start (in `mode`) or stop."""
        if oper != "start":
            return self.control(drive, kind, oper)
        if drive.state != "ugood":
            raise Refused("cannot %s %s: it is %s" % (kind, drive.label, drive.state))
        modes = ERASE_SECONDS if kind == "erase" else SANITIZE_MODES
        if mode not in modes:
            raise Refused("%s mode %s is not one of %s" % (kind, mode, "/".join(modes)))
        if kind == "sanitize" and mode != "overwrite" and drive.media != "SSD":
            raise Refused("%s does not support %s" % (drive.label, mode))
        if drive.task(kind):
            raise Refused("a %s is already running on %s" % (kind, drive.label))
        drive.tasks[kind] = Task(kind, ERASE_SECONDS[mode] if kind == "erase"
                                 else DURATIONS[kind])

    def vd_task(self, vd, kind, oper="start", force=False, mode=None):
        """Consistency check, initialisation or erase of a virtual drive."""
        if oper != "start":
            return self.control(vd, kind, oper)
        if vd.task(kind):
            raise Refused("a %s is already running on %s" % (TASK_NAMES[kind], vd.label))
        if kind == "cc":
            if vd.level == "0":
                raise Refused("consistency check is not possible on RAID 0")
            if vd.state != "optimal":
                raise Refused("%s is %s" % (vd.label, vd.state))
            if not vd.initialised and not force:
                raise Refused("%s is not initialised; use force" % vd.label)
        elif kind == "init":
            vd.tasks.pop("bgi", None)
            vd.initialised = False
        elif mode not in ERASE_SECONDS:
            raise Refused("erase mode %s is not one of %s" % (mode, "/".join(ERASE_SECONDS)))
        self.start_vd_task(vd, kind, ERASE_SECONDS[mode] * 2 if kind == "vd_erase" else None)

    def rebuild(self, drive, oper):
        """start, stop, pause or resume the rebuild of an offline member."""
        if oper != "start":
            task = drive.task("rebuild")
            self.control(drive, "rebuild", oper)
            if oper == "stop" and task:
                drive.state = "offline"
            return
        if drive.vd is None or drive.state != "offline":
            raise Refused("%s is not an offline member" % drive.label)
        self.start_rebuild(drive)

    # -- drive roles and states ------------------------------------------------------------
    def make_spare(self, drive, array=None):
        """A free drive becomes a global spare, or a dedicated one of `array`."""
        if drive.state != "ugood" or drive.foreign:
            raise Refused("%s is not unconfigured good" % drive.label)
        if array not in (None, "") and int(array) not in [v.array for v in self.vds.values()]:
            raise Refused("drive group %s does not exist" % array)
        drive.spare_for = None if array in (None, "") else int(array)
        drive.state = "hotspare"

    def release_spare(self, drive):
        if drive.state != "hotspare":
            raise Refused("%s is not a hot spare" % drive.label)
        drive.state, drive.spare_for = "ugood", None

    def set_drive_state(self, drive, state, force=False):
        """online, offline, ugood (a JBOD or failed drive only with force) or
        jbod (with the controller's JBOD switch on)."""
        d = drive
        if state in ("online", "offline"):
            before = ("offline", "failed") if state == "online" else ("online",)
            if d.vd is None or d.state not in before:
                raise Refused("%s is not an %s member" % (d.label, before[0]))
        elif state == "ugood":
            if d.state not in ("ugood", "jbod", "failed") or (d.vd and d.state != "failed"):
                raise Refused("%s is %s" % (d.label, d.state))
            if d.state in ("jbod", "failed") and not force:
                raise Refused("%s is %s; force is needed" % (d.label, d.state))
            d.spare_for = None
        elif state == "jbod":
            if not self.jbod:
                raise Refused("JBOD mode is disabled on the controller")
            if d.state != "ugood":
                raise Refused("%s is not unconfigured good" % d.label)
        else:
            raise Refused("drive state %s is unknown" % state)
        d.state = state
        self.log("PD %s set %s" % (d.address, state))

    def set_phy(self, drive, enabled):
        """Turns a drive's PHY off (a member drops out) or on (it rebuilds);
        None resets the link, which changes nothing."""
        if enabled is None:
            return
        if drive.phy_enabled == enabled:
            raise Refused("phy of %s is already %s" % (drive.label,
                                                        "enabled" if enabled else "disabled"))
        drive.phy_enabled = enabled
        if not enabled and drive.vd is not None and drive.state in ("online", "rebuild"):
            self.fail_drive(drive, "offline")
        elif enabled and drive.vd is not None and drive.state == "offline":
            self.start_rebuild(drive)
        elif enabled and drive.state == "failed":
            drive.state = "ugood"

    def set_drive(self, drive, leds=None, write_cache=None, phy_speed=None):
        if phy_speed is not None:
            if phy_speed not in ("1.5", "3", "6", "12"):
                raise Refused("link speed %s is not supported" % phy_speed)
            if float(phy_speed) > float(drive.link_gbps):
                raise Refused("%s supports at most %sG" % (drive.label, drive.link_gbps))
            drive.phy_speed = phy_speed + "G"
        if leds:
            drive.leds.update(leds)
        if write_cache is not None:
            drive.write_cache = write_cache

    def insert_drive(self, drive, array, row):
        """A free drive takes the place of a missing member (row of array)."""
        if drive.state != "ugood" or drive.foreign:
            raise Refused("%s is not unconfigured good" % drive.label)
        vds = [v for v in self.vds.values() if v.array == array]
        if not vds:
            raise Refused("drive group %d does not exist" % array)
        vd = vds[0]
        if not 0 <= row < len(vd.drives):
            raise Refused("row %d does not exist in drive group %d" % (row, array))
        old = vd.drives[row]
        if old.state != "failed" and old.vd is vd:
            raise Refused("row %d of drive group %d is not missing" % (row, array))
        vd.drives[row] = drive
        drive.vd, drive.state = vd, "offline"

    def set_boot(self, target, slot):
        """`slot` on, primary or secondary makes `target` (a virtual drive or a
        pass-through drive) the boot device of that slot; off clears it."""
        if slot != "off" and isinstance(target, Drive) and not (
                target.state == "jbod" or (self.mode == "5" and target.state == "ugood")):
            raise Refused("only a pass-through drive can be a boot drive")
        if slot != "off":
            for other in list(self.drives) + list(self.vds.values()):
                if other.boot == slot:
                    other.boot = "off"
        target.boot = slot

    # -- controller switches ----------------------------------------------------------------
    def set_jbod(self, on, force=False):
        jbods = [d for d in self.drives if d.state == "jbod"]
        if not on and jbods and not force:
            raise Refused("JBOD drives exist; force is needed")
        for d in jbods if not on else ():
            d.state = "ugood"
        self.jbod = on

    def set_mode(self, mode):
        """arcconf's controller mode: 2 HBA, 3 RAID, 5 Mixed."""
        if mode not in ("2", "3", "5"):
            raise Refused("controller mode %s is unknown (2 HBA, 3 RAID, 5 Mixed)" % mode)
        if mode == "2" and self.vds:
            raise Refused("logical devices exist; HBA mode needs none")
        self.mode, self.jbod = mode, mode in ("2", "5")

    def resolve_foreign(self, importing):
        foreign = [d for d in self.drives if d.foreign]
        if not foreign:
            raise Refused("no foreign configuration found")
        for d in foreign:
            d.foreign = False
        self.foreign_groups = 0
        if importing:
            self.create_vd("0", [d.address for d in foreign], name="imported")

    def set_unconfigured_cache(self, state):
        self.unconfigured_pdcache = state
        for d in self.drives:
            if d.state == "ugood":
                d.write_cache = state

    def set_vd(self, vd, **policies):
        """Cache, I/O, access, emulation and visibility policies of a virtual
        drive; emulation cannot be forced once disabled, nor a hidden drive hidden."""
        if policies.get("emulation") == "force" and vd.emulation == "none":
            raise Refused("emulation cannot be forced once it is disabled")
        if policies.get("hidden") and vd.hidden:
            raise Refused("%s is already hidden" % vd.label)
        for name, value in policies.items():
            setattr(vd, name, value)
        if "pdcache" in policies:       # the members' own caches follow
            for d in vd.drives:
                d.write_cache = vd.pdcache

    # -- array reshaping, started as background tasks -----------------------------------------
    def room_gb(self, vd):
        return data_drives(vd.level, len(vd.drives), vd.spans) * min(
            d.size_gb for d in vd.drives)

    def grow_vd(self, vd, new_size_gb):
        room = self.room_gb(vd)
        if new_size_gb <= vd.size_gb or new_size_gb > room + 1e-6:
            raise Refused("new size must lie between %.0f and %.0f GB in drive group %d"
                          % (vd.size_gb, room, vd.array))

        def done():
            vd.size_gb = new_size_gb
        self.start_vd_task(vd, "expand", on_done=done)

    def add_vd_drives(self, vd, drive_texts):
        drives = [self.find_drive(t) for t in drive_texts or []]
        if not drives or any(d.state != "ugood" for d in drives):
            raise Refused("the drives to add must be unconfigured good")

        def done():
            for d in drives:
                d.vd, d.state = vd, "online"
                vd.drives.append(d)
        self.start_vd_task(vd, "expand", on_done=done)

    def migrate_vd(self, vd, level):
        level = str(level).upper().replace("RAID", "")
        if level not in LEVELS or LEVELS[level][0] > len(vd.drives):
            raise Refused("%s cannot migrate to RAID %s" % (vd.label, level))

        def done():
            vd.level = level
        self.start_vd_task(vd, "migrate", on_done=done)

    # -- firmware ------------------------------------------------------------------------------
    def flash(self, path, drive=None, activate=True):
        """Loads a firmware image onto the controller (or `drive`); without
        `activate` it waits for an activation."""
        path = str(path)
        if not path.lower().endswith(FIRMWARE["drive" if drive else "controller"]):
            raise Refused("%s is not a %s firmware image" % (path,
                                                           "drive" if drive else "controller"))
        if drive is not None:
            drive.fw = "N%03d" % (int(drive.fw[1:]) + 1) if drive.fw[1:].isdigit() \
                else drive.fw + "a"
            return
        new = {"storcli64": "5.060.01-2270", "arcconf": "4.72", "sorbctl": "1.2.4.0"}[self.tool]
        if activate:
            self.fw_version = new
        else:
            self.pending_fw = new
        self.log("firmware flashed from %s" % path)

    def activate_fw(self, kind):
        if not self.pending_fw:
            raise Refused("no new firmware to activate")
        self.fw_version, self.pending_fw = self.pending_fw, None
        self.log("firmware activated (%s)" % kind)

    def reset(self):
        self.restarts += 1
        self.log("controller reset")
        self.slow_current = dict(self.slow_next)


    def patrol(self, oper):
        """start, stop, pause or resume the controller's patrol read."""
        if oper == "start":
            if self.pr_mode == "disable":
                raise Refused("patrol read is disabled")
            if self.pr_running:
                raise Refused("patrol read is already running")
            if not self.start_patrol():
                raise Refused("no drive to patrol")
        elif oper == "stop":
            self.stop_patrol()
        elif not self.pr_running:
            raise Refused("patrol read is not running")
        else:
            self.pr_paused = oper == "pause"
            for d in self.drives:
                if d.task("patrol"):
                    d.task("patrol").paused = self.pr_paused

    def patrol_drive(self, drive, oper):
        if oper == "stop":
            if not drive.task("patrol"):
                raise Refused("no patrol read running on %s" % drive.label)
            return self.stop_patrol([drive])
        if drive.state not in ("online", "ugood", "hotspare"):
            raise Refused("%s cannot be patrolled (%s)" % (drive.label, drive.state))
        if drive.task("patrol"):
            raise Refused("patrol read already running on %s" % drive.label)
        self.start_patrol([drive])

    def set_patrol(self, delay_hours=None, pd_count=None, start_time=None, **switches):
        """Patrol read options; `switches` are pr_ssd, pr_uncfg, pr_rate, pr_mode."""
        changes = dict(switches)
        if delay_hours is not None:
            changes["pr_delay_hours"] = _number(delay_hours, "delay", 0, 100000)
        if pd_count is not None:
            changes["pr_pd_count"] = _number(pd_count, "pd_count", 1, self.pr_pd_limit)
        if start_time is not None:
            _hour(start_time)
            changes["pr_start_time"] = str(start_time)
        self.configure(**changes)

    def set_cc_schedule(self, mode=None, start=None, excluded=None, delay_hours=None,
                        **switches):
        """Consistency-check schedule: mode off, seq or conc; a start hour
        ("%Y/%m/%d %H") that does not lie in the past; excluded virtual drives."""
        changes = dict(switches)
        if start and mode != "off":
            if _hour(start) < self.now() - datetime.timedelta(hours=1):
                raise Refused("start_time %s lies in the past" % start)
            changes["cc_start"] = str(start)
        if excluded is not None:
            changes["cc_excluded"] = [self.vd(v).vid for v in excluded]
        if delay_hours is not None:
            changes["cc_delay_hours"] = _number(delay_hours, "delay", 1, 365 * 24)
        if mode is not None:
            changes["cc_mode"] = mode
        self.configure(**changes)

    def switch_cc_schedule(self, on):
        if (self.cc_mode != "off") == on:
            raise Refused("the consistency check schedule is already %s" % ("on" if on else "off"))
        self.cc_mode = "seq" if on else "off"
        if on:
            self.cc_start = (self.now() + datetime.timedelta(hours=1)).strftime("%Y/%m/%d %H")

    # -- supercapacitor ---------------------------------------------------------------------
    def learn(self, start=None, cycle_days=None):
        """Starts a learn cycle now, or schedules the next at `start` every `cycle_days`."""
        if self.cap_pack_missing:
            raise Refused("no supercapacitor module present")
        if start is not None:
            self.learn_cycle_days = _number(cycle_days, "cycle", 1, 3650)
            self.learn_next = start
            return
        if self.learn_task:
            raise Refused("a learn cycle is already running")
        self.learn_task = Task("learn", 300)

    # -- drive fault policies -----------------------------------------------------------------
    def set_kick(self, period, total):
        self.kick_period = _number(period, "period", 1, 90)
        self.kick_sum = _number(total, "sum", 1, 8)

    def set_slow_thresholds(self, kind, default=False, switch=None, media=None, ratio=None,
                            susize=None, l1=None, l2=None, l3=None):
        """Slow-drive thresholds of `kind` (raid, rawdrive) for the next boot."""
        if default:
            self.slow_next = _slow_defaults()
            return
        nxt = {k: (dict(v) if isinstance(v, dict) else v) for k, v in self.slow_next.items()}
        section = nxt["Raid Threshold" if kind == "raid" else "RawDrive Threshold"]
        media = str(media or section["Media"]).lower()
        if media not in ("ssd", "hdd"):
            raise Refused("media must be ssd or hdd")
        section["Media"] = media
        if ratio:
            if kind != "raid" or not 4 <= int(ratio) <= 64:
                raise Refused("ratio 4 to 64 applies to raid only")
            nxt["Raid ratio"] = str(ratio)
        ms = lambda key: int(str(section[key]).rstrip("ms"))  # noqa: E731
        if kind == "raid":
            if susize:
                if media != "hdd" or not l1:
                    raise Refused("susize needs media hdd and l1")
                if str(susize) not in ("32", "64", "128", "256", "512", "1024"):
                    raise Refused("susize must be 32, 64, 128, 256, 512 or 1024")
                section["SuSize"] = "%sKB" % susize
            l1, l2, l3 = int(l1 or ms("L1")), int(l2 or ms("L2")), int(l3 or ms("L3"))
            low = 110 if media == "ssd" else (
                410 if section["SuSize"] in ("512KB", "1024KB") else 340)
            if not low <= l1 < l2:
                raise Refused("l1 must run from %d up to l2 (%d)" % (low, l2))
            if not l1 < l2 <= l3 or l3 > 20000:
                raise Refused("thresholds must keep l1 < l2 <= l3 <= 20000")
            section.update({"L1": "%dms" % l1, "L2": "%dms" % l2, "L3": "%dms" % l3})
        else:
            if l1 or l3 or susize:
                raise Refused("rawdrive takes l2 only")
            l2 = int(l2 or ms("L2"))
            if not 810 <= l2 <= 20000:
                raise Refused("l2 must be 810 to 20000")
            section["L2"] = "%dms" % l2
        self.slow_next = nxt
        if switch:
            self.slow_switch[kind] = switch

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


def _number(value, name, low, high):
    text = str(value).strip()
    if not text.isdigit() or not low <= int(text) <= high:
        raise Refused("%s must be a number from %d to %d" % (name, low, high))
    return int(text)


def _hour(text):
    try:
        return datetime.datetime.strptime(str(text), "%Y/%m/%d %H")
    except ValueError:
        raise Refused("start_time must read yyyy/mm/dd hh")


def _slow_defaults():
    return {
        "Raid ratio": "8",
        "Raid Threshold": {"Media": "hdd", "SuSize": "256KB", "L1": "340ms", "L2": "810ms",
                           "L3": "20000ms"},
        "RawDrive Threshold": {"Media": "hdd", "L2": "810ms"},
    }


# Model and firmware of a drive that a host file does not name, by kind.
DRIVE_KINDS = {
    ("SAS", "HDD"): ("ST1200MM0009", "N003"), ("SAS", "SSD"): ("KPM5XVUG960G", "0104"),
    ("SATA", "HDD"): ("HUS726T4TALA6L4", "VKGNW40H"), ("SATA", "SSD"): ("MZ7KH960HAJR", "HXM7404Q"),
    ("NVMe", "SSD"): ("MZWLJ1T9HBJR-00007", "EPK9GB5Q"),
}
LINK_GBPS = {"SAS": "12.0", "SATA": "6.0", "NVMe": "8.0"}


def make_drive(tool, enclosure, slot, interface="SAS", media="HDD", size="1.2TB", model=None,
               serial=None, firmware=None, did=None, size_gb=None, adapter=0):
    """A drive of a host description; `size` in the vendor's decimal units
    ("1.2TB", "800GB"), kept as binary gigabytes as the tools report them."""
    interface = {"nvme": "NVMe"}.get(str(interface).lower(), str(interface).upper())
    media = str(media).upper()
    if (interface, media) not in DRIVE_KINDS:
        raise ValueError("no %s %s drives (choose one of %s)" % (interface, media, ", ".join(
            "%s %s" % k for k in DRIVE_KINDS)))
    size_bytes = None
    if size_gb is None:         # decimal units: 1.2TB is 1.2e12 bytes
        text = str(size).upper().replace(" ", "")
        power = {"TB": 4, "GB": 3, "MB": 2}.get(text[-2:])
        if power is None:
            raise ValueError("drive size %r is not in TB, GB or MB" % (size,))
        size_bytes = int(round(float(text[:-2]) * 1000 ** power))
        size_gb = size_bytes / 1024.0 ** 3
    slot = int(slot)
    eid = {"arcconf": "0"}.get(tool, "" if enclosure is None else str(enclosure))
    return Drive(eid, slot, did if did is not None else slot if tool == "arcconf" else 10 + slot,
                 interface, media, round(size_gb, 3), model or DRIVE_KINDS[interface, media][0],
                 serial or "WFK%05d" % (31740 + slot * 7 + adapter * 1000),
                 firmware or DRIVE_KINDS[interface, media][1], LINK_GBPS[interface],
                 "0x5000c500%08x" % (0xA1B2C300 + slot + adapter * 0x100)
                 if interface != "NVMe" else "0x0",
                 physical_sector=512 if media == "SSD" else 4096, size_bytes=size_bytes)


def default_drives(tool):
    """Eight drives behind the backplane: four SAS HDD, two SAS SSD, two SATA
    HDD; numbered the tool's way (enclosure, slot, device id)."""
    enclosure = {"storcli64": "252", "arcconf": "0", "sorbctl": "65"}[tool]
    kinds = [("SAS", "HDD", 1117.8)] * 4 + [("SAS", "SSD", 893.75)] * 2 \
        + [("SATA", "HDD", 3726.0)] * 2
    return [make_drive(tool, enclosure, slot, intf, media, size_gb=size)
            for slot, (intf, media, size) in enumerate(kinds)]
