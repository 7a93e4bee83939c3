"""A child at rest: it has read all keys, and sleeps."""
import select

import pty_child


def expect_rest(child):
    """Waits until it has read all keys and sleeps, and takes what it has written.

    select() first delivers what the kernel still buffers. A request to the terminal in the output
    is answered, and the answer read, before that.
    """
    __tracebackhide__ = True
    child.wait("the child to be at rest", lambda: (
        not select.select([child.master, child.slave], [], [], 0)[0] and is_asleep(child)
        and not select.select([child.master], [], [], 0)[0]))


def is_asleep(child):
    return child.status is None and pty_child.is_asleep(child.process.pid)
