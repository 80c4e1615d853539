"""A window whose accessibility is hand-made, so that it can misbehave: told how by its argument.

lie: claims that every edit worked and does nothing. late: carries a deletion out at once and answers too late.
broken: answers with numbers that cannot be. Commands on standard input as for the other hosts.
"""
import json
import os
import sys

os.environ["NO_AT_BRIDGE"] = "1"
import gi  # noqa: E402

gi.require_version("Gtk", "3.0")
from gi.repository import Gio, GLib, Gtk  # noqa: E402

mode = sys.argv[1]
PATH = "/field"
state = {"text": "Hello //note"}
XML = """<node>
<interface name="org.a11y.atspi.Accessible">
 <method name="GetRole"><arg type="u" direction="out"/></method>
 <method name="GetState"><arg type="au" direction="out"/></method>
 <method name="GetInterfaces"><arg type="as" direction="out"/></method>
 <method name="GetAttributes"><arg type="a{ss}" direction="out"/></method>
 <property name="Name" type="s" access="read"/><property name="Description" type="s" access="read"/>
 <property name="AccessibleId" type="s" access="read"/>
</interface>
<interface name="org.a11y.atspi.Component">
 <method name="GetExtents"><arg type="u" direction="in"/><arg type="(iiii)" direction="out"/></method>
</interface>
<interface name="org.a11y.atspi.Text">
 <method name="GetText"><arg type="i" direction="in"/><arg type="i" direction="in"/><arg type="s" direction="out"/></method>
 <method name="GetNSelections"><arg type="i" direction="out"/></method>
 <method name="GetSelection"><arg type="i" direction="in"/><arg type="i" direction="out"/><arg type="i" direction="out"/></method>
 <method name="GetCharacterExtents"><arg type="i" direction="in"/><arg type="u" direction="in"/>
  <arg type="i" direction="out"/><arg type="i" direction="out"/><arg type="i" direction="out"/><arg type="i" direction="out"/></method>
 <property name="CharacterCount" type="i" access="read"/><property name="CaretOffset" type="i" access="read"/>
</interface>
<interface name="org.a11y.atspi.EditableText">
 <method name="DeleteText"><arg type="i" direction="in"/><arg type="i" direction="in"/><arg type="b" direction="out"/></method>
 <method name="SetTextContents"><arg type="s" direction="in"/><arg type="b" direction="out"/></method>
</interface>
</node>"""


def call(connection, sender, path, interface, method, arguments, invocation):
    values = arguments.unpack()
    answers = {
        "GetRole": ("(u)", (61,)),
        "GetState": ("(au)", ([1 << 7 | 1 << 12, 0],)),
        "GetInterfaces": ("(as)", (["org.a11y.atspi.Text", "org.a11y.atspi.EditableText"],)),
        "GetAttributes": ("(a{ss})", ({},)),
        "GetExtents": ("((iiii))", ((-2147483648, 2147483647, 10, 2147483647),)),
        "GetNSelections": ("(i)", (1 if mode == "broken" else 0,)),
        "GetSelection": ("(ii)", (2147483647, -7)),
        "GetCharacterExtents": ("(iiii)", (2147483647, -2147483648, -1, 2147483647)),
        "SetTextContents": ("(b)", (True,)),
    }
    if method == "GetText":
        reply = ("(s)", (state["text"][values[0] : values[1]],))
    elif method == "DeleteText":
        if mode == "late":
            state["text"] = state["text"][: values[0]] + state["text"][values[1] :]
            GLib.timeout_add(60, lambda: invocation.return_value(GLib.Variant("(b)", (True,))) and False)
            return
        reply = ("(b)", (True,))
    else:
        reply = answers[method]
    invocation.return_value(GLib.Variant(*reply))


def prop(connection, sender, path, interface, name):
    if name == "CharacterCount":
        return GLib.Variant("i", len(state["text"]))
    if name == "CaretOffset":
        return GLib.Variant("i", 2147483647 if mode == "broken" else len(state["text"]))
    return GLib.Variant("s", "field")


def tell_focus():
    bus.emit_signal(
        None, PATH, "org.a11y.atspi.Event.Object", "StateChanged",
        GLib.Variant("(siiva{sv})", ("focused", 1, 0, GLib.Variant("i", 0), {})),
    )


def heard(channel, condition):
    line = channel.readline()
    if not line:
        loop.quit()
        return False
    if line.startswith("get"):
        print(json.dumps(state["text"]), flush=True)
    else:
        tell_focus()
        print("ok", flush=True)
    return True


def when_active(*_):
    if window.is_active():
        tell_focus()
        print("ready", flush=True)


session = Gio.bus_get_sync(Gio.BusType.SESSION)
address = session.call_sync("org.a11y.Bus", "/org/a11y/bus", "org.a11y.Bus", "GetAddress", None, None, 0, -1, None).unpack()[0]
bus = Gio.DBusConnection.new_for_address_sync(
    address,
    Gio.DBusConnectionFlags.AUTHENTICATION_CLIENT | Gio.DBusConnectionFlags.MESSAGE_BUS_CONNECTION, None, None)
for interface in Gio.DBusNodeInfo.new_for_xml(XML).interfaces:
    bus.register_object(PATH, interface, call, prop, None)
loop = GLib.MainLoop()
window = Gtk.Window(title="A liar")
window.add(Gtk.Entry())
window.connect("notify::is-active", when_active)
window.show_all()
GLib.io_add_watch(sys.stdin, GLib.PRIORITY_DEFAULT, GLib.IOCondition.IN | GLib.IOCondition.HUP, heard)
loop.run()
