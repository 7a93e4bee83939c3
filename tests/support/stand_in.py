"""A stand-in for the log watch library, with its file name.

The script writes pairs of numbers into a pipe, which come out as news, and sets the descriptor
that is waited on. It sees how often the library was asked for that, and to process events.
"""
import subprocess

import pytest

STAND_IN = r"""
#include <errno.h>
#include <unistd.h>

typedef void callback(int first, void *context, int second);

static callback *call;
static void *context;
int descriptor = -1;    /* the answer to vantor_inotify_fd */
int refusal;            /* errno of vantor_open */
int source = -1;        /* where the pairs of numbers are */
int taken = 1;          /* pairs taken out by each vantor_process_event */
int repeats = 1;          /* callbacks for each of them */
int opened, closed;
volatile int asked, processed;

void *vantor_open(const char *name, callback *function, void *argument)
{
    if (refusal) {
        errno = refusal;
        return 0;
    }
    ++opened;
    call = function;
    context = argument;
    return name[0] ? &call : 0;
}

void vantor_close(void *handle)
{
    closed += handle == &call;
}

int vantor_inotify_fd(void *handle)
{
    ++asked;
    return handle == &call ? descriptor : -1;
}

void vantor_process_event(void *handle)
{
    int pair[2], i, j;
    ++processed;
    for (i = 0; i < taken && read(source, pair, sizeof pair) == sizeof pair; ++i)
        for (j = 0; j < repeats && handle == &call; ++j)
            call(pair[0], context, pair[1]);
}

void call_with(void *argument)
{
    call(1, argument, 2);
}
"""

SCRIPT = """
import ctypes, fcntl, resource, struct, Keyline
library = ctypes.CDLL("libVantor.so")
descriptor, source, refusal, taken, repeats, opened, closed, asked, processed = [
    ctypes.c_int.in_dll(library, name) for name in ("descriptor", "source", "refusal",
    "taken", "repeats", "opened", "closed", "asked", "processed")]
low = os.pipe2(os.O_NONBLOCK)
pipe = [fcntl.fcntl(end, fcntl.F_DUPFD, 100) for end in low]  # clear of all others
for end in low: os.close(end)
descriptor.value = source.value = pipe[0]

def put(first, second):
    os.write(pipe[1], struct.pack("2i", first, second))

def news(first, second):
    tell("news", (first, second))

def waiting(fd=0):
    return struct.unpack("i", fcntl.ioctl(fd, termios.FIONREAD, b"1234"))[0]

def on(): Keyline.loggingSyncEnabledIs("name", news)
def off(): Keyline.loggingSyncEnabledIs("name")

def told(word, function):  # at the test's word, on a thread, while a line is read
    wait_for(word)
    function()
    tell(word)
"""


@pytest.fixture(scope="session")
def stand_in(tmp_path_factory):
    """The environment in which the stand-in is found first."""
    folder = tmp_path_factory.mktemp("library")
    subprocess.run(
        ["gcc", "-shared", "-fPIC", "-Wl,-Bsymbolic", "-o", str(folder / "libVantor.so"),
         "-xc", "-"], input=STAND_IN, check=True, text=True)
    return {"LD_LIBRARY_PATH": str(folder)}
