"""A panel for status items that comes late: takes the watcher's name, tells what registers and what it says of itself."""
import sys

from gi.repository import Gio, GLib

NAME = "org.kde.StatusNotifierWatcher"
ITEM = "org.kde.StatusNotifierItem"
XML = f"""<node><interface name="{NAME}">
<method name="RegisterStatusNotifierItem"><arg direction="in" type="s"/></method>
<method name="RegisterStatusNotifierHost"><arg direction="in" type="s"/></method>
<property name="RegisteredStatusNotifierItems" type="as" access="read"/>
<property name="IsStatusNotifierHostRegistered" type="b" access="read"/>
<property name="ProtocolVersion" type="i" access="read"/>
<signal name="StatusNotifierHostRegistered"/><signal name="StatusNotifierItemRegistered"><arg type="s"/></signal>
</interface></node>"""


def tell(text):
    print(text, flush=True)


def call(connection, sender, path, interface, method, arguments, invocation):
    invocation.return_value(None)
    if method == "RegisterStatusNotifierItem":
        bus.signal_subscribe(sender, ITEM, None, None, None, 0, changed)
        tell("REGISTERED")


def changed(connection, sender, path, interface, signal, parameters):
    tell(signal)
    if signal == "NewToolTip":
        bus.call(sender, path, "org.freedesktop.DBus.Properties", "Get", GLib.Variant("(ss)", (ITEM, "ToolTip")), None,
                 0, -1, None, lambda b, r: tell("TOOLTIP " + b.call_finish(r).unpack()[0][2]))


def prop(connection, sender, path, interface, name):
    values = {"IsStatusNotifierHostRegistered": ("b", True), "ProtocolVersion": ("i", 0)}
    return GLib.Variant(*values.get(name, ("as", [])))


bus = Gio.bus_get_sync(Gio.BusType.SESSION)
bus.register_object("/StatusNotifierWatcher", Gio.DBusNodeInfo.new_for_xml(XML).interfaces[0], call, prop, None)
Gio.bus_own_name_on_connection(bus, NAME, 0, None, lambda *_: sys.exit(1))
GLib.MainLoop().run()
