"""The Python side of interposer.c: what passes between the module and the libraries that it uses.

Runs in the interpreter under test. The structures are those of interposer.c.
"""
import collections
import contextlib
import ctypes
import os

NONE, FAIL, BEFORE, AFTER, AT = range(5)
KEYS, LOG, SIZE = range(3)
HANG_UP = -1
PIECES = 64

Call = collections.namedtuple("Call", "name object offset")


class Piece(ctypes.Structure):
    _fields_ = [("kind", ctypes.c_int), ("size", ctypes.c_int), ("data", ctypes.c_char_p)]


class State(ctypes.Structure):
    _fields_ = [
        ("on", ctypes.c_int), ("plan", ctypes.c_int), ("site", ctypes.c_uint64),
        ("visit", ctypes.c_int64), ("seen", ctypes.c_int64), ("value", ctypes.c_int64),
        ("error", ctypes.c_int), ("raises", ctypes.c_int), ("signo", ctypes.c_int),
        ("whom", ctypes.c_int), ("fired", ctypes.c_int), ("master", ctypes.c_int),
        ("slave", ctypes.c_int), ("log", ctypes.c_int), ("feeding", ctypes.c_int),
        ("piece", ctypes.c_int), ("pieces", ctypes.c_int), ("starved", ctypes.c_int),
        ("waits", ctypes.c_int),
        ("noting", ctypes.c_int), ("count", ctypes.c_int), ("reader", ctypes.c_uint64),
        ("script", Piece * PIECES)]


class NotedCall(ctypes.Structure):
    _fields_ = [("which", ctypes.c_uint64), ("site", ctypes.c_uint64)]


library = ctypes.PyDLL(os.environ["KEYLINE_INTERPOSER"])
library.interposer_name.restype = ctypes.c_char_p
library.interposer_name.argtypes = [ctypes.c_uint64]
library.interposer_thread.restype = ctypes.c_uint64
library.interposer_memory.restype = ctypes.c_uint64
state = State.in_dll(library, "interposer")
OBJECTS = []


def attach(*paths):
    """Interposes on all functions that these shared objects import."""
    for path in paths:
        ctypes.CDLL(path)
        assert library.interposer_attach(os.path.basename(path).encode()), path
        OBJECTS.append(path)
    state.master = state.slave = state.log = -1


def feed(pieces):
    """What the waits of the next read are given, in order: keys, or (kind, bytes).

    None: the read does not come to the terminal for its keys.
    """
    state.feeding = pieces is not None
    pieces = pieces or []
    for number, piece in enumerate(pieces):
        kind, data = (KEYS, piece) if isinstance(piece, bytes) else piece
        state.script[number] = Piece(kind, len(data), data)
    state.piece, state.pieces = 0, len(pieces)


@contextlib.contextmanager
def counting():
    """Within it the calls of this thread count."""
    state.reader, state.on = library.interposer_thread(), 1
    state.seen = state.fired = state.starved = state.waits = 0
    try:
        yield
    finally:
        state.on = 0


@contextlib.contextmanager
def noted(calls):
    """Within it all calls are written down; behind it they are in `calls`."""
    state.count, state.noting = 0, 1
    try:
        with counting():
            yield
    finally:
        state.noting = 0
        array = ctypes.POINTER(NotedCall).in_dll(library, "interposer_calls")
        names = {}
        for call in array[:state.count]:
            name = names.setdefault(call.which, None) or library.interposer_name(call.which)
            names[call.which] = name
            calls.append(Call(name.decode(), call.site >> 32, call.site & 0xffffffff))


@contextlib.contextmanager
def stepped(places):
    """Within it every instruction counts; behind it the places of all are in `places`."""
    library.steps_begin()
    try:
        with counting():
            yield
    finally:
        library.steps_end()
        count = ctypes.c_int.in_dll(library, "steps_count").value
        sites = (ctypes.c_uint64 * count).in_dll(library, "steps_sites")
        places.extend(Call("", site >> 32, site & 0xffffffff) for site in sites)


def plan(kind, call=None, visit=1, value=0, error=0, raises=False, signo=0, whom=0):
    """What is to happen at that visit of the call's place; without a call, of any place.

    AT: before the instruction there is executed; the caller calls unplan() afterwards.
    """
    state.site = 0 if call is None else call.object << 32 | call.offset
    state.visit, state.value, state.error, state.raises = visit, value, error, raises
    state.signo, state.whom, state.plan = signo, whom, NONE if kind == AT else kind
    if kind == AT:
        library.steps_plant(ctypes.c_uint64(state.site))


def unplan():
    state.plan = NONE
    library.steps_clear()


def memory():
    return library.interposer_memory()


def dispositions():
    found = (ctypes.c_uint64 * 15)()
    library.interposer_dispositions(found)
    return list(found)
