"""A window with a terminal of the VTE library, driven by words on standard input.

Usage: vte_window.py COLUMNS ROWS COMMAND...

    cell     writes the width and the height of a cell in pixels
    dump     writes what the terminal holds, row by row, with a "+" before each that the next
             one continues and a "." before others, and a line "end"

The window is PADDING pixels wider and higher than the cells.
"""
import sys

import gi
gi.require_version("Gtk", "3.0")
gi.require_version("Vte", "2.91")
from gi.repository import GLib, Gtk, Pango, Vte  # noqa: E402 pylint: disable=C0413


def dump(terminal):
    # The rows are counted from the first one ever; the scroll bar may lag behind.
    last = terminal.get_cursor_position()[1] + terminal.get_row_count()
    for row in range(last):
        text = terminal.get_text_range(row, 0, row + 1, 0)[0]
        print("." + text[:-1] if text.endswith("\n") else "+" + text)
    print("end", flush=True)


def main():
    window, terminal = Gtk.Window(), Vte.Terminal()
    terminal.set_font(Pango.FontDescription("Monospace 6"))
    terminal.set_scrollback_lines(10000)
    terminal.connect("child-exited", Gtk.main_quit)
    window.add(terminal)
    terminal.set_size(int(sys.argv[1]), int(sys.argv[2]))
    window.show_all()
    terminal.spawn_async(Vte.PtyFlags.DEFAULT, None, sys.argv[3:], None,
                         GLib.SpawnFlags.DEFAULT, None, None, -1, None, None)

    def obey(stream, _):
        word = stream.readline().strip()
        if word == "cell":
            print(terminal.get_char_width(), terminal.get_char_height(), flush=True)
        elif word == "dump":
            dump(terminal)
        else:
            Gtk.main_quit()
        return True

    GLib.io_add_watch(sys.stdin, GLib.IO_IN, obey)
    Gtk.main()


main()
