"""The unit files of examples/systemd, read strictly: what systemd only warns of is refused here."""

import os
import re

# Each section and the keys that it may have: those that the day plays (services.py), and those that
# only the real manager can do. Any other one may be a slip of the pen, so it has to be put here first.
PLAYED = {
    "Unit": {"Conflicts", "StartLimitIntervalSec", "StartLimitBurst"},
    "Service": {"ExecStart", "ExecCondition", "Environment", "EnvironmentFile", "StateDirectory",
                "WorkingDirectory", "Restart", "RestartSec", "RestartPreventExitStatus", "KillSignal",
                "TimeoutStopSec", "Type"},
    "Timer": {"OnCalendar", "Unit"},
    "Install": {"WantedBy"},
}
NOT_PLAYED = {
    "Unit": {"Description", "Documentation", "After", "Before"},
    "Service": {"User", "Group", "LimitMEMLOCK", "LimitCORE", "LimitNOFILE", "OOMScoreAdjust", "Nice",
                "CPUAffinity", "UMask", "StateDirectoryMode", "PrivateDevices", "ReadWritePaths", "PrivateTmp", "BindPaths", "ProtectSystem",
                "ProtectHome", "ProtectProc", "ProtectClock", "ProtectHostname",
                "ProtectControlGroups", "ProtectKernelLogs", "ProtectKernelModules",
                "ProtectKernelTunables", "NoNewPrivileges", "CapabilityBoundingSet",
                "RestrictSUIDSGID", "RestrictRealtime", "RestrictNamespaces",
                "RestrictAddressFamilies", "PrivateNetwork", "IPAddressDeny", "LockPersonality",
                "MemoryDenyWriteExecute", "SystemCallArchitectures", "SystemCallFilter",
                "SystemCallErrorNumber", "DevicePolicy", "DeviceAllow", "RemoveIPC"},
    "Timer": {"AccuracySec"},
    "Install": set(),
}
# Of these a later line adds to the earlier ones; of the others it takes their place.
LISTS = {"Conflicts", "ExecStart", "ExecCondition", "Environment", "EnvironmentFile", "OnCalendar",
         "SystemCallFilter", "DeviceAllow", "ReadWritePaths", "BindPaths", "Documentation", "After",
         "Before", "WantedBy", "CPUAffinity"}


class UnitError(Exception):
    """What is wrong with a unit file: which file, which line, what to do."""


class Unit:
    """One unit with its drop-ins. Values are those of the files, with the specifiers put in."""

    def __init__(self, name):
        self.name = name
        self.template, _, self.instance = name.rpartition(".")[0].partition("@")
        self.kind = name.rpartition(".")[2]
        self.values = {}

    def read(self, path):
        """A file of the unit. What an earlier one said is added to, or replaced, as systemd does it."""
        section = None
        with open(path, encoding="utf-8") as file:
            for number, line in enumerate(file, 1):
                line = line.rstrip("\n")
                if not line.strip() or line.lstrip()[0] in "#;":
                    continue
                found = re.fullmatch(r"\[([^]]*)\]", line.strip())
                if found:
                    section = self._section(path, number, found[1])
                else:
                    self._value(path, number, section, line)

    @staticmethod
    def _section(path, number, name):
        if name not in PLAYED:
            raise UnitError(f"{path}:{number}: section [{name}] is not known; known are "
                            + ", ".join(f"[{known}]" for known in PLAYED))
        return name

    def _value(self, path, number, section, line):
        key, equals, value = line.partition("=")
        key, value = key.strip(), value.strip()
        if not equals or section is None:
            raise UnitError(f"{path}:{number}: '{line}' is not KEY=VALUE in a section")
        if line.endswith("\\"):
            raise UnitError(f"{path}:{number}: a line that goes on in the next one is not read here")
        known = PLAYED[section] | NOT_PLAYED[section]
        if key not in known:
            raise UnitError(f"{path}:{number}: key '{key}' is not known in [{section}]; known are "
                            + ", ".join(sorted(known)))
        if key in LISTS:
            if value == "":
                self.values[key] = []
            else:
                self.values.setdefault(key, []).append(self._specified(path, number, value))
        else:
            self.values[key] = self._specified(path, number, value)

    def _specified(self, path, number, value):
        letters = {"i": self.instance, "n": self.name, "p": self.template, "%": "%"}

        def put(found):
            if found[1] not in letters:
                raise UnitError(f"{path}:{number}: specifier '%{found[1]}' is not read here; known are "
                                + ", ".join("%" + letter for letter in letters))
            return letters[found[1]]
        return re.sub(r"%(.)", put, value)

    def get(self, key, default=None):
        return self.values.get(key, [] if default is None and key in LISTS else default)


def load(directory, name):
    """The unit `name`, an instance of a template too, with its drop-ins."""
    unit = Unit(name)
    template = f"{unit.template}@.{unit.kind}"
    paths = [os.path.join(directory, name), os.path.join(directory, template)]
    path = next((path for path in paths if os.path.exists(path)), None)
    if path is None:
        raise UnitError(f"{directory}: there is neither {name} nor {template}")
    unit.read(path)
    for folder in (template + ".d", name + ".d") if unit.instance else (name + ".d",):
        folder = os.path.join(directory, folder)
        if os.path.isdir(folder):
            for drop_in in sorted(os.listdir(folder)):
                unit.read(os.path.join(folder, drop_in))
    return unit


def all_units(directory):
    """The name of each unit of the directory, templates among them."""
    return sorted(name for name in os.listdir(directory)
                  if name.endswith((".service", ".timer", ".target")))


def seconds(text):
    """A time span as these files have them: 5s, 10min, 3."""
    found = re.fullmatch(r"(\d+)\s*(s|min|h|)", text)
    if not found:
        raise UnitError(f"time span '{text}' is not read here; such as 5s, 10min, 1h")
    return int(found[1]) * {"": 1, "s": 1, "min": 60, "h": 3600}[found[2]]


def environment_file(path):
    """NAME=VALUE lines; # begins a comment."""
    values = {}
    with open(path, encoding="utf-8") as file:
        for number, line in enumerate(file, 1):
            line = line.strip()
            if line and line[0] not in "#;":
                name, equals, value = line.partition("=")
                if not equals:
                    raise UnitError(f"{path}:{number}: '{line}' is not NAME=VALUE")
                values[name] = value.strip('"')
    return values
