"""When a child waits, having done all that was asked of it."""
import select

import pty_child


def expect_rest(child):
    """Waits until it has read all keys and sleeps, and takes what it has written.

    Looking for readiness first moves on what is still on its way. A question to the terminal
    in what it has written is answered, and the answer read, before that.
    """
    __tracebackhide__ = True
    child.wait("the child to be at rest", lambda: (
        not select.select([child.master, child.slave], [], [], 0)[0] and is_asleep(child)
        and not select.select([child.master], [], [], 0)[0]))


def is_asleep(child):
    return child.status is None and pty_child.is_asleep(child.process.pid)
