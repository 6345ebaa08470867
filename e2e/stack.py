# SPDX-FileCopyrightText: The KVFobLink authors
# SPDX-License-Identifier: Apache-2.0

"""The Bluetooth stack under the scenarios: the air, the adapters, the daemon."""
import contextlib
import glob
import os
import re
import signal
import socket
import subprocess
import time

from program import Failure

BLUETOOTHD = "/usr/libexec/bluetooth/bluetoothd"
DAEMON_PID = "/run/bluetoothd.pid"
DAEMON_SETTINGS = "/etc/bluetooth/main.conf"
BUS = ("dbus-daemon", "--system", "--nofork", "--nopidfile", "--nosyslog")
BUS_PID = "/run/dbus.pid"
CONTROLLERS = ("hci0", "hci1", "hci2", "hci3")
SHARE = "/run/share"


def air(command):
    """Tells the relay between the stack and the emulated controllers what to do; its answer."""
    with socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM) as control:
        control.bind("")  # any address, for the answer
        control.settimeout(10)
        control.sendto(command.encode(), "/run/vproxy.sock")
        return control.recv(200).decode()


def slowdown():
    """How many times as much as its processors can do the host has to do; 1 if it has less."""
    with open(SHARE + "/load", encoding="utf-8") as file:
        load, processors = file.read().split()
    return max(1, float(load) / int(processors))


def bus(path, method, *arguments):
    return subprocess.run(
        ["dbus-send", "--system", "--print-reply", "--dest=org.bluez", path, method, *arguments],
        capture_output=True, text=True, timeout=30, check=False).stdout


def power(adapter, on):
    bus(f"/org/bluez/{adapter}", "org.freedesktop.DBus.Properties.Set", "string:org.bluez.Adapter1",
        "string:Powered", "variant:boolean:" + ("true" if on else "false"))


def devices():
    objects = bus("/", "org.freedesktop.DBus.ObjectManager.GetManagedObjects")
    return set(re.findall(r'object path "(/org/bluez/hci\d/dev_[0-9A-F_]+)"', objects))


def holds(path, interface, name):
    return "boolean true" in bus(
        path, "org.freedesktop.DBus.Properties.Get", "string:org.bluez." + interface, "string:" + name)


def until(condition, seconds, what):
    end = time.monotonic() + seconds
    while not condition():
        if time.monotonic() > end:
            raise Failure(what)
        time.sleep(0.1)


def expect_links(count, seconds=10):
    """Of hci0, as the daemon knows them."""
    def linked():
        return sum(holds(path, "Device1", "Connected") for path in devices() if path.startswith("/org/bluez/hci0/"))
    until(lambda: linked() == count, seconds, f"not {count} links")


def expect_discovery(seconds=15):
    until(lambda: holds("/org/bluez/hci0", "Adapter1", "Discovering"), seconds, "no discovery")


def remove_devices():
    for path in devices():
        bus(path.rsplit("/", 1)[0], "org.bluez.Adapter1.RemoveDevice", "objpath:" + path)


def forget_devices():
    """So that no scenario meets what an earlier one left behind."""
    remove_devices()
    # The daemon keeps the attributes of a device that it has removed. A tag's never move; those of a
    # virtual tag are elsewhere each time it goes on the air.
    for cached in glob.glob("/var/lib/bluetooth/*/cache/*"):
        os.unlink(cached)


def adapter_address(adapter="hci0"):
    return re.search('string "([0-9A-F:]+)"', bus(
        f"/org/bluez/{adapter}", "org.freedesktop.DBus.Properties.Get", "string:org.bluez.Adapter1",
        "string:Address")).group(1)


def unplug(controller):
    """Until the kernel has given its index back."""
    name = air(controller + " name")
    air(controller + " unplug")
    until(lambda: not os.path.exists("/sys/class/bluetooth/" + name), 30, f"{name} does not go")


def mend_adapters():
    """All plugged in, each as the adapter that it is called after."""
    wrong = [each for each in CONTROLLERS if air(each + " name") != each]
    for each in ("spare", *wrong):
        if air(each + " name") != "none":
            unplug(each)
    for each in wrong:
        air(each + " plug")
    for each in wrong:
        until(lambda path="/org/bluez/" + each: "LEAdvertisingManager1" in bus(
            path, "org.freedesktop.DBus.Introspectable.Introspect"), 30, f"{each} does not come back")


def start_service(command, pid_file, log_name):
    with open(f"{SHARE}/{log_name}", "a", encoding="utf-8") as log:
        process = subprocess.Popen(command, stdin=subprocess.DEVNULL, stdout=log, stderr=log)
    with open(pid_file, "w", encoding="utf-8") as file:
        file.write(str(process.pid))


def pid_in(pid_file):
    with open(pid_file, encoding="utf-8") as file:
        return int(file.read())


def runs(pid_file):
    try:
        with open(f"/proc/{pid_in(pid_file)}/stat", encoding="utf-8") as file:
            return file.read().rsplit(")", 1)[1].split()[0] != "Z"
    except FileNotFoundError:
        return False


def daemon_runs():
    return runs(DAEMON_PID)


def start_daemon():
    start_service([BLUETOOTHD, "-n", "-d"], DAEMON_PID, "bluetoothd.log")


def end_daemon(how=signal.SIGTERM):
    os.kill(pid_in(DAEMON_PID), how)
    until(lambda: not daemon_runs(), 30, "the daemon does not end")


def restart_daemon(how):
    end_daemon(how)
    start_daemon()


@contextlib.contextmanager
def daemon_setting(line):
    """A line more at the end of the daemon's settings, which it reads when it starts."""
    with open(DAEMON_SETTINGS, encoding="utf-8") as file:
        before = file.read()
    try:
        restart_daemon_with(before + line + "\n")
        yield
    finally:
        restart_daemon_with(before)


def restart_daemon_with(settings):
    end_daemon()
    with open(DAEMON_SETTINGS, "w", encoding="utf-8") as file:
        file.write(settings)
    start_daemon()


def restart_bus():
    """The daemon ends with its bus; whoever starts services starts it again."""
    os.kill(pid_in(BUS_PID), signal.SIGTERM)
    until(lambda: not runs(BUS_PID), 30, "the bus does not end")
    until(lambda: not daemon_runs(), 30, "the daemon outlives its bus")
    start_service(BUS, BUS_PID, "dbus.log")
    until(bus_answers, 30, "the bus does not come back")
    start_daemon()


def bus_answers():
    return subprocess.run(
        ["dbus-send", "--system", "--print-reply", "--dest=org.freedesktop.DBus", "/", "org.freedesktop.DBus.GetId"],
        capture_output=True, timeout=30, check=False).returncode == 0


@contextlib.contextmanager
def movable_clock():
    """Gives what moves the calendar clock, by so many seconds; in the end it is right again."""
    ahead = time.time() - time.monotonic()
    try:
        yield lambda seconds: time.clock_settime(time.CLOCK_REALTIME, time.time() + seconds)
    finally:
        time.clock_settime(time.CLOCK_REALTIME, time.monotonic() + ahead)
