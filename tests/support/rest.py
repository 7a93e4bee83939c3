"""When a child waits, having done all that was asked of it."""
import select


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
    if child.status is not None:
        return False
    with open("/proc/%d/stat" % child.process.pid, "rb") as file:
        return file.read().rpartition(b") ")[2][:1] == b"S"
