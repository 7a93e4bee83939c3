// The method table, and the small methods that use several of the other files. The module
// gets no further attributes, and has no module state: one process has one terminal and one
// user at a time.
#include "../lineedit/lineedit.h"
#include "base.h"
#include "driver.h"
#include "gil.h"
#include "history.h"
#include "history_methods.h"
#include "keys.h"
#include "logecho.h"
#include "pyapi.h"

#include <pthread.h>
#include <stdlib.h>

// keyBindingsEnabledIs(enabled). Lock: held.
static PyObject *
py_keyBindingsEnabledIs(PyObject *, PyObject *args)
{
    PyObject *enabled;
    if (!PyArg_ParseTuple(args, "O:keyBindingsEnabledIs", &enabled))
        return nullptr;
    if (!PyBool_Check(enabled)) {
        PyErr_SetString(PyExc_TypeError, "Expected a bool");
        return nullptr;
    }
    if (!readline_initialized)
        init_readline();
    gil_claim_editor();
    if (enabled == Py_True) {
        setup_key_bindings();
        key_bindings_enabled = 1;
    } else {
        keys_unbind_completion();
        key_bindings_enabled = 0;
    }
    gil_release_editor();
    Py_RETURN_NONE;
}

// keyBindingsEnabled(): the last setting, not what the editor has bound. Lock: held.
static PyObject *
py_keyBindingsEnabled(PyObject *, PyObject *)
{
    return PyBool_FromLong(key_bindings_enabled);
}

// TerminalWidthIs(width). No range check; no effect before the editor exists. Lock: held.
static PyObject *
py_TerminalWidthIs(PyObject *, PyObject *args)
{
    int width;
    // The format has no function name, deliberately: neither have the argument errors.
    if (!PyArg_ParseTuple(args, "i", &width))
        return nullptr;
    int rows = 0;
    int cols = 0;
    gil_claim_editor();
    rl_get_screen_size(&rows, &cols);
    rl_set_screen_size(rows, width);
    gil_release_editor();
    Py_RETURN_NONE;
}

// resetInput(): a new user on a new terminal. The next readline sets the editor up on
// sys.stdin and sys.stdout as they are then; the old streams are forgotten, not closed. Any
// positional arguments are accepted and ignored, deliberately. Lock: held.
static PyObject *
py_resetInput(PyObject *, PyObject *)
{
    gil_claim_editor();
    // Drops the references of init_readline, and deliberately also when it took none.
    Py_DECREF(PySys_GetObject("stdin"));
    rl_instream = nullptr;
    Py_DECREF(PySys_GetObject("stdout"));
    readline_initialized = 0;
    rl_outstream = nullptr;
    clear_history();
    gil_release_editor();
    Py_RETURN_NONE;
}

// The docstrings of readline and simpleReadline say None although both return the line, and
// the first describes a callback with three arguments; deliberate, and tested.
static PyMethodDef keyline_methods[] = {
    {"readline", py_readline, METH_VARARGS,
     "readline(string, function, string, string) -> None\n"
     "Read a line of input, using the given prompt string and\n"
     "callback function for completion.  The callback is\n"
     "called as function(line, pos, key) where line is the\n"
     "contents of the line buffer, pos is the current cursor\n"
     "position, and key is the key that invoked completion.\n"
     "The return value is the completed text to append to the\n"
     "line, or None if there is no completion.  Two other optional\n"
     "arguments can be provided to support per-mode history, which\n"
     "specifies the history key for the current mode and its parent.\n"
     "If key is not specified, the line is not added to history."},
    {"simpleReadline", py_simpleReadline, METH_VARARGS,
     "simpleReadline(string) -> None\n"
     "Read a line of input, using the given prompt string.\n"
     "This does not support the use of ctrl+c and ctrl+z"},
    {"history", py_history, METH_VARARGS,
     "history(string) -> list\n"
     "Return a list containing the lines in the history.  An optional\n"
     "string can be provided as a key to return only history relevant\n"
     "to the specified key."},
    {"newHistoryMode", py_newHistoryMode, METH_VARARGS,
     "newHistoryMode(string, string) -> None\n"
     "Create a new history mode based on the key and parent key."},
    {"addHistory", py_addHistory, METH_VARARGS,
     "addHistory(string, string, string) -> bool\n"
     "Add a line to history with two keys provided to support per-mode\n"
     "history: the first specifies the history key for the current mode\n"
     "and the second specifies its parent.  If the parent mode does not\n"
     "exist, return False, else return True."},
    {"clearHistory", py_clearHistory, METH_NOARGS,
     "clearHistory() -> None\n"
     "Clear the session command history."},
    {"keyBindingsEnabledIs", py_keyBindingsEnabledIs, METH_VARARGS,
     "keyBindingsEnabledIs(bool) -> None\n"
     "Enable/disable readline bindings for the <tab> and ? keys."},
    {"keyBindingsEnabled", py_keyBindingsEnabled, METH_NOARGS,
     "keyBindingsEnabled() -> bool\n"
     "Return whether readline bindings for the <tab> and ? keys are enabled."},
    {"historyLimitIs", py_historyLimitIs, METH_VARARGS,
     "historyLimitIs(int) -> None\n"
     "Specify history recording limit (default 1024)."},
    {"TerminalWidthIs", py_TerminalWidthIs, METH_VARARGS,
     "TerminalWidthIs(int) -> None\n"
     "Set Terminal Width using rl_screen_size."},
    {"loggingSyncEnabledIs", py_loggingSyncEnabledIs, METH_VARARGS,
     "loggingSyncEnabledIs(filename, callback) -> None\n"
     "Enable/disable synchronous logging."},
    {"resetInput", py_resetInput, METH_VARARGS,
     "resetInput() -> None\n"
     "Resets the CLI for a new user with new terminal to come in."},
    {nullptr, nullptr, 0, nullptr},
};

static PyModuleDef keyline_module = {
    PyModuleDef_HEAD_INIT,
    "Keyline",
    "This module implements interactive command input,\n"
    "with support for editing, completion and help.",
    -1, // all state is in process globals: no sub-interpreters
    keyline_methods,
    nullptr,
    nullptr,
    nullptr,
    nullptr,
};

KEYLINE_EXPORT PyObject *PyInit_Keyline();

// New module object, or NULL with an exception and nothing touched. Lock: held.
PyObject *
PyInit_Keyline()
{
    // Both would use the same terminal. Checked here only: nothing prevents the other one
    // from being imported later.
    PyObject *modules = PySys_GetObject("modules");
    if (PyMapping_HasKeyString(modules, "readline")) {
        PyErr_SetString(PyExc_ImportError,
                        "Keyline cannot be used if the readline module is loaded");
        return nullptr;
    }
    PyObject *module = PyModule_Create2(&keyline_module, 1013);
    if (module == nullptr)
        return nullptr;
    hist_init_context();
    // The process may exit or fork while another thread than the main one reads.
    static_cast<void>(Py_AtExit(rl_give_back_terminal));
    static_cast<void>(pthread_atfork(nullptr, nullptr, driver_forked));
    return module;
}
