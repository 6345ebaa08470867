"""The Bluetooth stack under the scenarios: the air, the adapters, the daemon."""
import glob
import os
import re
import socket
import subprocess
import time

from program import Failure

BLUETOOTHD = "/usr/libexec/bluetooth/bluetoothd"
DAEMON_PID = "/run/bluetoothd.pid"
SHARE = "/run/share"


def air(command):
    """Tells the relay between the stack and the emulated controllers what to do; its answer."""
    with socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM) as control:
        control.bind("")  # any address, for the answer
        control.settimeout(10)
        control.sendto(command.encode(), "/run/vproxy.sock")
        return control.recv(200).decode()


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


def forget_devices():
    """So that no scenario meets what an earlier one left behind."""
    for path in devices():
        bus(path.rsplit("/", 1)[0], "org.bluez.Adapter1.RemoveDevice", "objpath:" + path)
    # The daemon keeps the attributes of a device that it has removed. A tag's never move; those of a
    # virtual tag are elsewhere each time it goes on the air.
    for cached in glob.glob("/var/lib/bluetooth/*/cache/*"):
        os.unlink(cached)


def daemon_runs():
    with open(DAEMON_PID, encoding="utf-8") as file:
        pid = file.read().strip()
    try:
        with open(f"/proc/{pid}/stat", encoding="utf-8") as file:
            return file.read().rsplit(")", 1)[1].split()[0] != "Z"
    except FileNotFoundError:
        return False


def start_daemon():
    with open(SHARE + "/bluetoothd.log", "a", encoding="utf-8") as log:
        daemon = subprocess.Popen([BLUETOOTHD, "-n", "-d"], stdin=subprocess.DEVNULL, stdout=log, stderr=log)
    with open(DAEMON_PID, "w", encoding="utf-8") as file:
        file.write(str(daemon.pid))


def restart_daemon(how):
    with open(DAEMON_PID, encoding="utf-8") as file:
        os.kill(int(file.read()), how)
    while daemon_runs():
        time.sleep(0.05)
    start_daemon()
