"""Looks for leaks right before the interpreter ends, as newer ones need it.

They never free interned names. Before their finalization these are still in tables and count as
no leaks. Their threads keep values where the checker looks only if it is told to. What a module has
leaked is found as well as later, but for objects that can still be reached otherwise.
"""
import atexit
import ctypes

CHUNKS = [16384 << times for times in range(16)]  # sizes of a part of a thread's stack of values
library = ctypes.PyDLL(None)  # holds the interpreter's lock: no other thread runs during look()


def pointer(name, *arguments):
    function = getattr(library, name)
    function.restype, function.argtypes = ctypes.c_void_p, [ctypes.c_void_p] * len(arguments)
    return function(*arguments)


def stacks():
    """Address and size of each thread's stack of values.

    It is not from malloc(), so the checker does not scan it. Start, top and end are adjacent in
    the thread's state.
    """
    state = pointer("PyInterpreterState_ThreadHead", pointer("PyInterpreterState_Get"))
    while state:
        words = (ctypes.c_size_t * 64).from_address(state)
        for first, place, end in zip(words, words[1:], words[2:]):
            if first % 4096 == 0 and first < place <= end and end - first in CHUNKS:
                yield first, end - first
        state = pointer("PyThreadState_Next", state)


def look():
    """The only leak check of this process: the library makes no second one."""
    for address, size in stacks():
        getattr(library, "__lsan_register_root_region")(
            ctypes.c_void_p(address), ctypes.c_size_t(size))
    getattr(library, "__lsan_do_leak_check")()


atexit.register(look)  # registered first, called last
