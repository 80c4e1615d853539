"""A window of text fields in GTK 3 or 4, which is told what to do line by line on standard input (see FieldHost.h)."""
import json
import sys

import gi

version = sys.argv[1]
gi.require_version("Gtk", version + ".0")
gi.require_version("Gdk", version + ".0")
from gi.repository import GLib, Gtk  # noqa: E402

fields = {}


def answer(text):
    print(text, flush=True)


def text_of(widget):
    if isinstance(widget, Gtk.TextView):
        buffer = widget.get_buffer()
        return buffer.get_text(buffer.get_start_iter(), buffer.get_end_iter(), True)
    return widget.get_text()


def set_text(widget, text):
    if isinstance(widget, Gtk.TextView):
        buffer = widget.get_buffer()
        buffer.set_text(text)
        buffer.place_cursor(buffer.get_end_iter())
    else:
        widget.set_text(text)
        widget.set_position(-1)


def select(widget, start, end):
    if isinstance(widget, Gtk.TextView):
        buffer = widget.get_buffer()
        buffer.select_range(buffer.get_iter_at_offset(end), buffer.get_iter_at_offset(start))
    else:
        widget.select_region(start, end)


def caret_of(widget):
    """Left edge and top of the caret, from the window's contents."""
    buffer = widget.get_buffer()
    place = widget.get_iter_location(buffer.get_iter_at_mark(buffer.get_insert()))
    x, y = widget.buffer_to_window_coords(Gtk.TextWindowType.WIDGET, place.x, place.y)
    moved = widget.translate_coordinates(widget.get_root() if version == "4" else widget.get_toplevel(), x, y)
    return f"{int(moved[0])} {int(moved[1])} {place.height}"


def obey(line):
    command, _, rest = line.strip().partition(" ")
    name, _, argument = rest.partition(" ")
    widget = fields.get(name)
    if command == "focus":
        widget.grab_focus()
        if not isinstance(widget, Gtk.TextView):
            widget.set_position(-1)
        answer("ok")
    elif command == "set":
        set_text(widget, json.loads(argument))
        answer("ok")
    elif command == "get":
        answer(json.dumps(text_of(widget)))
    elif command == "select":
        select(widget, *map(int, argument.split()))
        answer("ok")
    elif command == "caret":
        answer(caret_of(widget))
    else:
        answer("what?")


def heard(channel, condition):
    line = channel.readline() if condition & GLib.IOCondition.IN else ""
    if not line:
        loop.quit()
        return False
    obey(line)
    return True


def build(window):
    box = Gtk.Box(orientation=Gtk.Orientation.VERTICAL, spacing=6)
    fields["entry"] = Gtk.Entry()
    fields["entry"].set_placeholder_text("Find things")
    fields["multi"] = Gtk.TextView()
    fields["password"] = Gtk.PasswordEntry() if version == "4" else Gtk.Entry()
    if version == "3":
        fields["password"].set_visibility(False)
        fields["password"].set_input_purpose(Gtk.InputPurpose.PASSWORD)
    fields["readonly"] = Gtk.Entry()
    fields["readonly"].set_editable(False)
    for name, widget in fields.items():
        widget.set_size_request(420, 120 if name == "multi" else -1)
        if version == "3":
            box.pack_start(widget, False, False, 0)
        else:
            box.append(widget)
    if version == "3":
        window.add(box)
        fields["entry"].get_accessible().set_name("Search box")
        window.show_all()
    else:
        window.set_child(box)
        window.present()
    fields["entry"].grab_focus()


loop = GLib.MainLoop()
if version == "4":
    Gtk.init()
window = Gtk.Window(title="GTK fields")
window.set_default_size(460, 320)
build(window)
GLib.io_add_watch(sys.stdin, GLib.PRIORITY_DEFAULT, GLib.IOCondition.IN | GLib.IOCondition.HUP, heard)


def when_active(*_):
    if window.is_active():
        answer("ready")
        window.disconnect(watch)


watch = window.connect("notify::is-active", when_active)
loop.run()
