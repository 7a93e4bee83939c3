// The five history methods. Lines are added through the editor, which calls the store's
// callbacks, so that both agree on what the newest line is; they are read directly. The
// reader, which may be another thread, only reads the lines: a method that changes them, or
// the current mode, claims the editor first.
#include "history_methods.h"

#include "../lineedit/lineedit.h"
#include "gil.h"
#include "history.h"
#include "history_keys.h"

#include <ctype.h>

// Bytes are passed as signed characters, which the C library's tables allow. The locale
// says which ones are white space.
static bool
is_blank(const char *line)
{
    for (; *line != '\0'; line++)
        if (!isspace(static_cast<signed char>(*line)))
            return false;
    return true;
}

// Appends the stored line, which is UTF-8, as a str; false with an exception set.
static bool
append_line(PyObject *lines, const HistoryEntry *entry)
{
    PyObject *line = PyUnicode_FromString(entry->ev.str);
    if (line == nullptr)
        return false;
    int status = PyList_Append(lines, line);
    Py_DECREF(line);
    return status == 0;
}

PyObject *
py_history(PyObject *, PyObject *args)
{
    const char *key = nullptr;
    if (!PyArg_ParseTuple(args, "|s:history", &key))
        return nullptr;
    const HistoryMode *mode = find_history_mode(key);
    PyObject *lines = PyList_New(0);
    if (lines == nullptr)
        return nullptr;
    const HistoryLink *link = hist_ctx.list.prev;
    for (; link != &hist_ctx.list; link = link->prev) {
        const HistoryEntry *entry = static_cast<const HistoryEntry *>(link);
        if (hist_visible(entry, mode) && !append_line(lines, entry)) {
            Py_DECREF(lines);
            return nullptr;
        }
    }
    return lines;
}

PyObject *
py_newHistoryMode(PyObject *, PyObject *args)
{
    const char *key;
    const char *parent_key;
    if (!PyArg_ParseTuple(args, "ss:newHistoryMode", &key, &parent_key))
        return nullptr;
    if (new_history_mode(key, parent_key) == nullptr) {
        PyErr_SetString(PyExc_KeyError, parent_key);
        return nullptr;
    }
    // Looks the mode up once more. An empty key is never found, so a second mode with an
    // empty key is made here; that is deliberate.
    KEYLINE_CHECK(new_history_mode(key, parent_key), "new_history_mode( key, parent_key )",
                  867, "py_newHistoryMode");
    Py_RETURN_NONE;
}

PyObject *
py_addHistory(PyObject *, PyObject *args)
{
    const char *line;
    const char *key;
    const char *parent_key;
    if (!PyArg_ParseTuple(args, "sss:addHistory", &line, &key, &parent_key))
        return nullptr;
    if (is_blank(line))
        Py_RETURN_TRUE;
    HistoryMode *mode = new_history_mode(key, parent_key);
    if (mode == nullptr)
        Py_RETURN_FALSE;
    gil_claim_editor();
    // Also when the line is not recorded.
    hist_ctx.current_mode = mode;
    // The editor calls hist_enter, which drops a repeat.
    if (hist_ctx.history_limit != 0)
        add_history(line);
    gil_release_editor();
    Py_RETURN_TRUE;
}

PyObject *
py_clearHistory(PyObject *, PyObject *)
{
    gil_claim_editor();
    clear_history();
    gil_release_editor();
    Py_RETURN_NONE;
}

PyObject *
py_historyLimitIs(PyObject *, PyObject *args)
{
    unsigned int limit;
    if (!PyArg_ParseTuple(args, "I:historyLimitIs", &limit))
        return nullptr;
    gil_claim_editor();
    history_limit_changes(hist_ctx.history_limit, limit);
    hist_ctx.history_limit = limit;
    hist_shrink();
    gil_release_editor();
    Py_RETURN_NONE;
}
