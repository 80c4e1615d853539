"""Saves a picture of the whole screen, or of a part of it: keep_screen.py FILE [X Y WIDTH HEIGHT]."""
import sys

import gi

gi.require_version("Gdk", "3.0")
from gi.repository import Gdk  # noqa: E402

root = Gdk.get_default_root_window()
area = [int(word) for word in sys.argv[2:6]] or [0, 0, root.get_width(), root.get_height()]
Gdk.pixbuf_get_from_window(root, *area).savev(sys.argv[1], "png", [], [])
