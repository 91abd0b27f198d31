"""A tray of the newer kind (StatusNotifierItem), as programs see it on the session bus."""

from gi.repository import Gio, GLib
from notifications import connect
from screen import wait_for


class Tray:
    """A desktop's tray as programs see it on the session bus, with room for icons and a list of them."""

    NAME, PATH, MENU = "org.kde.StatusNotifierWatcher", "/StatusNotifierWatcher", "com.canonical.dbusmenu"
    INTERFACE = f"""<node><interface name="{NAME}">
      <method name="RegisterStatusNotifierItem"><arg type="s" direction="in"/></method>
      <property name="IsStatusNotifierHostRegistered" type="b" access="read"/>
      <property name="RegisteredStatusNotifierItems" type="as" access="read"/></interface></node>"""

    def __init__(self):
        self._items, self._ids = [], {}
        self._bus = connect()
        self._bus.register_object(self.PATH, Gio.DBusNodeInfo.new_for_xml(self.INTERFACE).interfaces[0],
                                  self._register, self._property, None)
        self._bus.signal_subscribe("org.freedesktop.DBus", "org.freedesktop.DBus", "NameOwnerChanged", None, None,
                                   Gio.DBusSignalFlags.NONE, self._owner_changed)
        self._call("org.freedesktop.DBus", "/", "org.freedesktop.DBus", "RequestName", "(su)", self.NAME, 0)

    def close(self):
        self._bus.close_sync()

    def _register(self, _bus, _sender, _path, _interface, _method, parameters, invocation):
        self._items += parameters.unpack()
        invocation.return_value(None)

    def _property(self, _bus, _sender, _path, _interface, name):
        return GLib.Variant("b", True) if name.startswith("Is") else GLib.Variant("as", self._items)

    def _owner_changed(self, _bus, _sender, _path, _interface, _signal, parameters):
        name, _, new = parameters.unpack()
        if not new and name in self._items:
            self._items.remove(name)

    def _call(self, service, path, interface, member, signature, *arguments):
        return self._bus.call_sync(service, path, interface, member, GLib.Variant(signature, arguments), None,
                                   Gio.DBusCallFlags.NONE, 5000, None).unpack()

    def has_items(self, count):
        def has():
            while GLib.MainContext.default().iteration(False):
                pass
            return len(self._items) == count

        return wait_for(f"{count} icons", has, 10)

    def labels(self):
        """The menu's labels and their identifiers."""
        def read(item):
            yield item[1].get("label"), item[0]
            for child in item[2]:
                yield from read(child)

        return dict(read(self._call(self._items[0], "/MenuBar", self.MENU, "GetLayout", "(iias)", 0, -1, [])[1]))

    def choose(self, label):
        self._call(self._items[0], "/MenuBar", self.MENU, "Event", "(isvu)", self.labels()[label], "clicked",
                   GLib.Variant("i", 0), 0)
