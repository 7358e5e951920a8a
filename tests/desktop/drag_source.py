#!/usr/bin/python3
"""A small window to drag a file from: drag_source.py URI. Says its X window's number."""
import sys

import gi

gi.require_version("Gtk", "4.0")
gi.require_version("GdkX11", "4.0")
from gi.repository import Gdk, GdkX11, GLib, Gtk

Gtk.init()
window = Gtk.Window(default_width=200, default_height=200, decorated=False)
source = Gtk.DragSource(actions=Gdk.DragAction.COPY)
source.set_content(Gdk.ContentProvider.new_for_bytes("text/uri-list", GLib.Bytes.new(f"{sys.argv[1]}\r\n".encode())))
window.add_controller(source)
window.present()
print(GdkX11.X11Surface.get_xid(window.get_surface()), flush=True)
GLib.MainLoop().run()
