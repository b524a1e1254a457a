"""A private world for the fprintd backend's tests: the real fprintd daemon on libfprint's virtual device.

It starts a system bus of its own (dbus-daemon with its own configuration; DBUS_SYSTEM_BUS_ADDRESS points
at it), a polkit stand-in on it (dbusmock's polkitd template, allowing the fprintd actions), a logind
stand-in (dbusmock's logind template, with one session) and `/usr/libexec/fprintd -t` with the virtual
device (FP_VIRTUAL_DEVICE, STATE_DIRECTORY; with `storage`, the virtual device with storage of its own,
FP_VIRTUAL_DEVICE_STORAGE, on which fprintd looks for a duplicate before it enrolls). It drives the virtual device through its socket and reaps
every process it started, also when a test fails (use it as a context manager).

Needs Debian's /usr/bin/python3 (dbus-python and dbusmock); `Unavailable` says why it cannot run here.
"""
import os
import re
import shutil
import signal
import socket
import subprocess
import tempfile
import time

import dbus

from velq_e2e import SYSTEM_BUS_CONFIG

FPRINT = "net.reactivated.Fprint"
MANAGER_PATH = "/net/reactivated/Fprint/Manager"
DEVICE_IFACE = "net.reactivated.Fprint.Device"
POLKIT = "org.freedesktop.PolicyKit1"
LOGIND = "org.freedesktop.login1"
MOCK_IFACE = "org.freedesktop.DBus.Mock"
FPRINTD = "/usr/libexec/fprintd"
SESSION_ID = "velq1"
FPRINT_ACTIONS = ["net.reactivated.fprint.device.verify", "net.reactivated.fprint.device.enroll",
                  "net.reactivated.fprint.device.setusername"]
# Only a guard against a hang: nothing relies on how long anything takes.
HANG_GUARD = 30


class Unavailable(Exception):
    """The environment lacks something the daemon needs; the message says what."""


def wait_until(what, condition):
    end = time.monotonic() + HANG_GUARD
    while not condition():
        if time.monotonic() > end:
            raise Unavailable("%s did not happen" % what)
        time.sleep(0.05)


class Fixture:
    def __init__(self, storage=False):
        for path in (FPRINTD, "/usr/bin/dbus-daemon"):
            if not os.access(path, os.X_OK):
                raise Unavailable("%s is not installed (scripts/setup.sh installs it)" % path)
        self.root = tempfile.mkdtemp(prefix="velq-fprintd-")
        self.procs = []
        self.fprintd = None
        self.bus = None
        self.device_variable = "FP_VIRTUAL_DEVICE_STORAGE" if storage else "FP_VIRTUAL_DEVICE"
        self.socket_path = os.path.join(self.root, "virtual-device")
        self.state = os.path.join(self.root, "state")
        os.makedirs(self.state)
        self.address = "unix:path=" + os.path.join(self.root, "bus")
        self.env = dict(os.environ, DBUS_SYSTEM_BUS_ADDRESS=self.address)
        self.env.pop("DBUS_SESSION_BUS_ADDRESS", None)

    # ---- lifetime ----

    def __enter__(self):
        try:
            self._start_bus()
            self._start_polkit()
            self._start_logind()
            self.start_daemon()
        except BaseException:
            self.close()
            raise
        return self

    def __exit__(self, *_):
        self.close()

    def _spawn(self, args, env=None, log=None):
        out = open(os.path.join(self.root, log), "wb") if log else subprocess.DEVNULL
        proc = subprocess.Popen(args, env=env or self.env, stdout=out, stderr=subprocess.STDOUT,
                                start_new_session=True)
        self.procs.append(proc)
        return proc

    def _start_bus(self):
        config = os.path.join(self.root, "bus.conf")
        with open(config, "w") as f:
            f.write(SYSTEM_BUS_CONFIG % os.path.join(self.root, "bus"))
        bus = self._spawn(["/usr/bin/dbus-daemon", "--config-file=" + config, "--nofork", "--nopidfile"],
                          log="dbus.log")
        def connected():
            if bus.poll() is not None:
                return True
            try:
                self.bus = dbus.bus.BusConnection(self.address)
                return True
            except dbus.exceptions.DBusException:
                return False  # the socket's file exists a moment before the daemon listens on it
        wait_until("the private system bus accepting connections", connected)
        if bus.poll() is not None:
            raise Unavailable("dbus-daemon cannot start here: %s" % self.log("dbus.log"))

    def _start_mock(self, name, template, log):
        proc = self._spawn(["/usr/bin/python3", "-m", "dbusmock", "--system", "--template", template], log=log)
        self.wait_for_name(name, proc, log)
        return proc

    def _start_polkit(self):
        self._start_mock(POLKIT, "polkitd", "polkitd.log")
        self.polkit_allow(FPRINT_ACTIONS)

    def polkit_allow(self, actions):
        """Allows exactly `actions` (an empty list: polkit refuses everything)."""
        mock = dbus.Interface(self.bus.get_object(POLKIT, "/org/freedesktop/PolicyKit1/Authority"), MOCK_IFACE)
        mock.SetAllowed(dbus.Array(actions, signature="s"))

    def _start_logind(self):
        self._start_mock(LOGIND, "logind", "logind.log")
        mock = dbus.Interface(self.bus.get_object(LOGIND, "/org/freedesktop/login1"), MOCK_IFACE)
        mock.AddSession(SESSION_ID, "seat0", dbus.UInt32(os.getuid()), "velq", True)

    def start_daemon(self):
        env = dict(self.env, STATE_DIRECTORY=self.state, G_MESSAGES_DEBUG="all")
        env[self.device_variable] = self.socket_path
        self.fprintd = self._spawn([FPRINTD, "-t"], env=env, log="fprintd.log")
        self.wait_for_name(FPRINT, self.fprintd, "fprintd.log")
        wait_until("the virtual reader appearing", lambda: len(self.devices()) == 1)

    def kill_daemon(self):
        self.fprintd.send_signal(signal.SIGKILL)
        self.fprintd.wait()

    def wait_for_name(self, name, proc, log):
        def owned():
            if proc.poll() is not None:
                raise Unavailable("%s cannot start here: %s" % (name, self.log(log)))
            return self.bus.name_has_owner(name)
        wait_until("%s appearing on the bus" % name, owned)

    def log(self, name):
        try:
            with open(os.path.join(self.root, name), "rb") as f:
                return f.read().decode("utf-8", "replace")[-2000:]
        except OSError:
            return ""

    def close(self):
        for proc in reversed(self.procs):
            if proc.poll() is None:
                try:
                    os.killpg(proc.pid, signal.SIGKILL)
                except ProcessLookupError:
                    pass
            proc.wait()
        self.procs = []
        if self.bus is not None:
            self.bus.close()
            self.bus = None
        shutil.rmtree(self.root, ignore_errors=True)

    # ---- the daemon and its virtual reader ----

    def devices(self):
        manager = dbus.Interface(self.bus.get_object(FPRINT, MANAGER_PATH), "net.reactivated.Fprint.Manager")
        return [str(path) for path in manager.GetDevices()]

    def device(self):
        return dbus.Interface(self.bus.get_object(FPRINT, self.devices()[0]), DEVICE_IFACE)

    def send(self, command):
        """One command to the virtual reader (it listens only while a client has the reader claimed)."""
        def sent():
            with socket.socket(socket.AF_UNIX, socket.SOCK_STREAM) as s:
                try:
                    s.connect(self.socket_path)
                except (FileNotFoundError, ConnectionRefusedError):
                    return False
                s.sendall(command.encode() + b"\n")
                return True
        wait_until("the virtual reader taking %r" % command, sent)

    def enrolled(self, user):
        try:
            return [str(f) for f in self.device().ListEnrolledFingers(user)]
        except dbus.exceptions.DBusException:
            return []

    def claimable(self):
        """True when another client can claim the reader now (nobody holds it)."""
        device = self.device()
        try:
            device.Claim("")
        except dbus.exceptions.DBusException:
            return False
        device.Release()
        return True

    def calls_by_others(self, method):
        """How many times a client other than this fixture has called the reader's `method` (the daemon's
        log names each caller)."""
        own = self.bus.get_unique_name()
        pattern = re.compile(r"Authorization granted to (\S+) to call method '%s'" % re.escape(method))
        with open(os.path.join(self.root, "fprintd.log"), "rb") as f:
            callers = pattern.findall(f.read().decode("utf-8", "replace"))
        return sum(1 for caller in callers if caller != own)

    def releases_by_others(self):
        """How many times another client has released the reader with Release (a client that only leaves
        the bus is released without one)."""
        return self.calls_by_others("Release")

    def wait_for_call(self, method, count=1):
        """Waits until other clients have called `method` `count` times in all."""
        wait_until("a call of %s" % method, lambda: self.calls_by_others(method) >= count)
