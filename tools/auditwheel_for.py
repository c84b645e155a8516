"""auditwheel for a wheel of another architecture: `auditwheel_for.py ARCH
ARGS...` runs `auditwheel ARGS...` as it runs on an ARCH machine.

auditwheel offers only the policies of the machine it runs on (`repair --plat
manylinux_2_17_aarch64` is "an invalid choice" on x86-64), although its
checks read the wheel's own ELF files and know every architecture's policy.
Here the architecture it detects is the target's; everything else is
auditwheel's own.  A library the binary needs from outside the policy is not
grafted from this machine (its libraries are of the wrong architecture):
repair then fails, as it should.
"""
import platform
import sys


def main(argv: list[str]) -> int:
    arch, args = argv[0], argv[1:]
    platform.machine = lambda: arch
    from auditwheel.main import main as auditwheel_main  # type: ignore[import-untyped]

    sys.argv = ["auditwheel"] + args
    status: object = auditwheel_main()
    return int(status) if isinstance(status, int) else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
