// The file operations of a session of the log watch's fuzzer: done in a folder of its own,
// and repeated in the model.
#pragma once

#include "watch_model.h"

#include <stdio.h>
#include <string>

inline Model *model;     // null once the session left what it knows; borrowed
inline bool around;      // all news is taken around operations on directories and links
inline size_t written;   // bytes in this session
inline unsigned counter; // makes every write another one
extern const bool printed;

#define TELL(...)                                                                          \
    do {                                                                                   \
        if (printed)                                                                       \
            fprintf(stdout, __VA_ARGS__);                                                  \
    } while (0)

// Ends the process: something that always holds does not.
[[noreturn]] void broken(const char *what, const std::string &path);

// Takes all news of all watches; the fuzzer's.
inline void (*drain_all)();

// The folder of all sessions, made by the first, and where a path leads in it.
void make_root();
std::string real(const std::string &path);

// Puts there what a session finds, closes what it opened, removes what it left.
void begin_files(bool with_way, bool with_link);
void close_files();
void clear_root();

// Directories, links, and files in their place.
bool is_way(const std::string &path);

// The next places and texts of the input.
const char *any_place();
std::string any_text();

void append(const std::string &path, const std::string &text);

// One operation, of a kind from 6 on.
void file_step(unsigned kind, const std::string &path);
