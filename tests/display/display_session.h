// A session of the whole editor in this process, on a model of a terminal. Whenever the
// editor asks for a key, the screen is compared with the naive layout of prompt and line.
#pragma once

#include <string>
#include <vector>

#include "terminal_model.h"

// What happens next: a key, of one byte or more, or something else.
struct DisplayEvent {
    enum Kind {
        Key,
        Answer, // TAB, and the completion hook inserts the text
        News,   // the shell prints a row and has prompt and line redrawn
        Resize,
    } kind = Key;
    std::string bytes; // of the key; of the text
    int rows = 0;
    int columns = 0;
    TerminalModel::Resize how = TerminalModel::Reflows;
    bool is_told = true; // at once; if not, the next resize follows before anything else
};

struct DisplaySession {
    std::string type;
    int rows = 24;
    int columns = 80;
    int above = 0; // rows that were printed before the first prompt
    bool vi = false;
    bool answers = true; // the terminal does, when it is asked where its cursor is
    std::string prompt;
    std::vector<std::string> history;
    std::vector<DisplayEvent> events;
};

struct DisplayOutcome {
    size_t events = 0; // that happened
    std::string
        trouble; // what is wrong after the last of them, with both screens, or nothing
};

// Once, before the first session.
void display_set_up();

DisplayOutcome run(const DisplaySession &session);

// To be read: the terminal, the history, the events by name.
std::string description(const DisplaySession &session);
