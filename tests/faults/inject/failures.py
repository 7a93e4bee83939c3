"""How each function that the module, the log library or the editor calls can fail.

(value, errno, raises): what the call answers, its errno (0 leaves it alone), and whether a
MemoryError is set. What is not here cannot fail, or fails for what it is given and not for
what the system has left, as conversions of text do: other tests give them such text.
"""
import errno

NULL = 0
RAISES_NULL = [(NULL, 0, True)]
RAISES_MINUS = [(-1, 0, True)]
NO_MEMORY = [(NULL, errno.ENOMEM, False)]


def minus(*errors):
    return [(-1, error, False) for error in errors]


def null(*errors):
    return [(NULL, error, False) for error in errors]


FAILURES = {
    # The interpreter
    "PyModule_Create2": RAISES_NULL,
    "PyArg_ParseTuple": RAISES_NULL,
    "_PyArg_ParseTuple_SizeT": RAISES_NULL,
    "PyObject_CallFunction": RAISES_NULL,
    "_PyObject_CallFunction_SizeT": RAISES_NULL,
    "PyObject_CallMethod": RAISES_NULL,
    "_PyObject_CallMethod_SizeT": RAISES_NULL,
    "PyUnicode_FromString": RAISES_NULL,
    "PyUnicode_AsUTF8": RAISES_NULL,
    "PyList_New": RAISES_NULL,
    "PyList_Append": RAISES_MINUS,
    "PyLong_AsLongLong": RAISES_MINUS,
    "PyObject_AsFileDescriptor": RAISES_MINUS,
    "PyMapping_HasKeyString": null(0),
    "PySys_GetObject": null(0),
    # Memory
    "malloc": NO_MEMORY, "calloc": NO_MEMORY, "realloc": NO_MEMORY, "strdup": NO_MEMORY,
    # Waiting, reading and writing
    "tcsetattr": minus(errno.EIO, errno.EINTR),
    "select": minus(errno.EINTR, errno.ENOMEM),
    "read": minus(errno.EIO, errno.EINTR, errno.EAGAIN) + null(0),
    "write": minus(errno.EIO),
    "ioctl": minus(errno.EIO, errno.EINTR),
    "tcgetattr": minus(errno.EIO),
    "isatty": null(errno.ENOTTY),
    "fcntl": minus(errno.EINVAL),
    "lseek": minus(errno.EINVAL),
    # Streams
    "fdopen": null(errno.ENOMEM), "fopen": null(errno.EMFILE),
    "fclose": minus(errno.EIO), "fflush": minus(errno.EIO), "fputc": minus(errno.EIO),
    "fputs": minus(errno.EIO), "__overflow": minus(errno.EIO), "fwrite": null(errno.EIO),
    "__getdelim": minus(errno.ENOMEM), "getdelim": minus(errno.ENOMEM),
    # Signals
    "sigaction": minus(errno.EINVAL), "signal": minus(errno.EINVAL),
    # Searches
    "regcomp": [(12, 0, False)], "regexec": [(12, 0, False)],
    # The terminal's description, and what is around the process
    "tgetent": [(-1, 0, False), (0, 0, False)], "tgetstr": null(0),
    "tgetnum": minus(0), "tgetflag": null(0), "tgoto": null(0), "tputs": minus(0),
    "getenv": null(0), "secure_getenv": null(0), "stat": minus(errno.EACCES),
    "getpwuid_r": [(errno.ENOMEM, 0, False)], "getpwnam_r": [(errno.ENOMEM, 0, False)],
    # The log library's own
    "inotify_init1": minus(errno.EMFILE),
    "inotify_add_watch": minus(errno.ENOSPC, errno.ENOMEM, errno.EACCES),
    "inotify_rm_watch": minus(errno.EINVAL),
    "eventfd": minus(errno.EMFILE),
    "eventfd_read": minus(errno.EIO), "eventfd_write": minus(errno.EIO),
    "memfd_create": minus(errno.EMFILE, errno.ENOMEM),
    "ftruncate": minus(errno.EIO),
    "pwrite": minus(errno.ENOMEM), "pwrite64": minus(errno.ENOMEM),
    "pread": minus(errno.EIO), "__pread_chk": minus(errno.EIO),
    "open": minus(errno.EMFILE, errno.EACCES, errno.EINTR),
    "fstat": minus(errno.EIO), "lstat": minus(errno.EIO, errno.ENOMEM),
    "readlink": minus(errno.EIO),
    "getcwd": null(errno.ENOENT),
    "opendir": null(errno.EMFILE), "readdir": null(errno.EIO),
    # The log library as a whole
    "vantor_open": null(errno.ENOSPC),
    "vantor_inotify_fd": minus(0),
    "vantor_process_event": minus(errno.ENOMEM),
}


def label(failure):
    value, error, raises = failure
    if raises:
        return "%d with MemoryError" % value
    return "%d" % value + (" with %s" % errno.errorcode[error] if error else "")
