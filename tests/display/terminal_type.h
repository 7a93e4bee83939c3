// Terminal types: what the description says that a terminal understands.
#pragma once

#include <map>
#include <string>
#include <vector>

enum class Action {
    Left,
    Right,
    Up,
    Down,
    Column,
    Home,
    Insert,
    Delete,
    EraseRight,
    EraseBelow,
    EraseAll,
    InsertMode,
    ReplaceMode,
    Save,
    Restore,
    Tab,
    Report,
    Nothing,
};

struct TerminalType {
    std::string name;
    bool known = false;
    bool margins = false; // wraps by itself behind the last column ...
    bool delayed = false; // ... but not before the next character comes
    // What it understands: a number as `#`, without padding.
    std::map<std::string, Action> sequences;

    bool can(Action action) const;
    // How many columns an editor can use that must not fill the last one by mistake.
    int usable(int window) const;
};

// As the terminal library describes it. Leaves the library's current terminal as it is.
TerminalType terminal_type(const std::string &name);

// Compiles types that lack a capability, or more, into a folder that the terminal library
// is told of, and gives their names. False when they cannot be compiled.
bool invent_types(std::vector<std::string> *names);
