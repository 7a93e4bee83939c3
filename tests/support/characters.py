"""What the C library knows about characters, as the children's locale has it."""
import ctypes
import functools

LC_CTYPE_MASK = 1
libc = ctypes.CDLL(None)
libc.newlocale.restype = libc.uselocale.restype = ctypes.c_void_p
libc.newlocale.argtypes = ctypes.c_int, ctypes.c_char_p, ctypes.c_void_p
libc.uselocale.argtypes = [ctypes.c_void_p]
locale = libc.newlocale(LC_CTYPE_MASK, b"C.UTF-8", None)


def asked(name):
    """The C library's function of that name, for a character."""
    function = getattr(libc, name)
    function.argtypes = [ctypes.c_uint]

    @functools.lru_cache(maxsize=None)
    def ask(char):
        before = libc.uselocale(locale)
        try:
            return function(ord(char))
        finally:
            libc.uselocale(before)
    return ask


columns = asked("wcwidth")
is_printable = asked("iswprint")
is_alphanumeric = asked("iswalnum")
is_letter = asked("iswalpha")
lower = asked("towlower")
upper = asked("towupper")
