"""A desktop's host of notifications, as programs see it on the session bus."""

import os
import threading
import time

from gi.repository import Gio, GLib

NAME = "org.freedesktop.Notifications"
PLACE = "/org/freedesktop/Notifications"
ARGUMENTS = "".join(f'<arg type="{kind}" direction="in"/>' for kind in ("s", "u", "s", "s", "s", "as", "a{sv}", "i"))
INTERFACE = f"""<node><interface name="{NAME}">
<method name="GetCapabilities"><arg type="as" direction="out"/></method>
<method name="Notify">{ARGUMENTS}<arg type="u" direction="out"/></method>
<method name="CloseNotification"><arg type="u" direction="in"/></method>
</interface></node>"""
ID = 7


def connect():
    """A connection to the session bus of its own."""
    return Gio.DBusConnection.new_for_address_sync(
        os.environ["DBUS_SESSION_BUS_ADDRESS"], Gio.DBusConnectionFlags.AUTHENTICATION_CLIENT |
        Gio.DBusConnectionFlags.MESSAGE_BUS_CONNECTION, None, None)


class Notifications:
    """Keeps what it was told to show: (title, body, actions, hints). It answers from a thread of its own."""

    def __init__(self):
        self.shown, self.taken_away = [], 0
        self._bus = connect()
        began = threading.Event()
        threading.Thread(target=self._serve, args=(began,), daemon=True).start()
        began.wait()

    def _serve(self, began):
        context = GLib.MainContext()
        context.push_thread_default()
        self._bus.register_object(PLACE, Gio.DBusNodeInfo.new_for_xml(INTERFACE).interfaces[0], self._call, None, None)
        Gio.bus_own_name_on_connection(self._bus, NAME, Gio.BusNameOwnerFlags.NONE, lambda *_: began.set(), None)
        GLib.MainLoop(context).run()

    def _call(self, _bus, _sender, _path, _interface, method, values, invocation):
        answer = None
        if method == "GetCapabilities":
            answer = GLib.Variant("(as)", (["actions", "body-markup"],))
        elif method == "Notify":
            self.shown.append(values.unpack()[3:7])
            answer = GLib.Variant("(u)", (ID,))
        else:
            self.taken_away += 1
        invocation.return_value(answer)

    def press(self):
        """Presses the button of the last notification."""
        self._bus.emit_signal(None, PLACE, NAME, "ActionInvoked", GLib.Variant("(us)", (ID, self.shown[-1][2][0])))

    def until(self, condition):
        deadline = time.monotonic() + 30
        while not condition() and time.monotonic() < deadline:
            time.sleep(0.02)
        return condition()
