"""What runs inside the terminal: hands the terminal to the driver, and stays.

Usage: holder.py SOCKET.  Sends its standard input, its environment and then a
byte for each change of the window's size.  Ends when the driver closes the socket.
"""
import os
import signal
import socket
import sys
import tty


def main():
    tty.setraw(0)
    with socket.socket(socket.AF_UNIX) as link:
        link.connect(sys.argv[1])
        environment = "\0".join("%s=%s" % pair for pair in os.environ.items())
        socket.send_fds(link, [environment.encode()], [0])
        signal.signal(signal.SIGWINCH, lambda *_: link.send(b"w"))
        while link.recv(1):
            pass


main()
