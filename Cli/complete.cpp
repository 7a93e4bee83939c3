// One completion: restore the shell's signal dispositions, take the lock, call the
// callback, apply the result at the end of the line, undo the first two. Reads and edits
// the line through the editor's readline-compatible interface alone.
#include "complete.h"

#include "../lineedit/lineedit.h"
#include "gil.h"
#include "interrupt.h"

#include <string.h>

PyObject *completion_callback;

// Calls the callback with the key, a bytes object of length 1, and the line. New reference,
// or NULL with an exception. Lock: held.
static PyObject *
complete_call(int key)
{
    // rl_end counts characters here while the buffer holds UTF-8, deliberately: a line that
    // is not plain ASCII reaches the shell as a shorter prefix. rl_end also counts a
    // character that the locale cannot encode, so the terminating NUL may come first.
    const char *line = rl_get_line_buffer();
    size_t length = line == nullptr ? 0 : strnlen(line, static_cast<size_t>(rl_end));
    return PyObject_CallFunction(completion_callback, "cs#", key, line,
                                 static_cast<Py_ssize_t>(length));
}

// Applies the result at the end of the line: its leading backspaces delete, the rest is
// inserted. False with an exception when it is no str. Lock: held.
static bool
complete_apply(PyObject *result)
{
    const char *text = PyUnicode_AsUTF8(result);
    if (text == nullptr)
        return false;
    size_t backspaces = strspn(text, "\b");
    if (backspaces > 0) {
        int end = rl_point;
        int count =
            backspaces < static_cast<size_t>(end) ? static_cast<int>(backspaces) : end;
        rl_point = end - count;
        rl_delete_text(end - count, end);
    }
    rl_insert_text(text + backspaces);
    rl_point = rl_end;
    rl_forced_update_display();
    return true;
}

int
complete_line(int, int key)
{
    // NULL when the key is pressed in simpleReadline before the first readline call.
    if (completion_callback == nullptr || completion_callback == Py_None)
        return 0;

    rl_save_start(); // the callback may print over prompt and line
    interrupt_restore();
    acquireGil();
    rl_point = rl_end;
    KEYLINE_CHECK(py_lhandler_ptype == nullptr, "py_lhandler_ptype == NULL", 609,
                  "complete_line");
    PyObject *result = complete_call(key);
    if (result == Py_None)
        rl_forced_update_display();
    else if (result == nullptr || !complete_apply(result))
        gil_park_exception();
    Py_XDECREF(result);
    releaseGil();
    // With an exception parked the shell's dispositions stay until readline returns.
    if (py_lhandler_ptype == nullptr)
        interrupt_reinstall();
    return 0;
}

char **
complete_line_wrapper(const char *, int, int)
{
    complete_line(0, rl_completion_invoking_key);
    rl_attempted_completion_over = 1;
    return nullptr;
}
