// What the log watch library promises, without inotify: a tree of files in memory, on which
// the fuzzer repeats every operation that the kernel allowed, and per watch the text that
// is to be told next.
#pragma once

#include <deque>
#include <map>
#include <string>
#include <string_view>
#include <vector>

enum class Kind { file, link, directory };

struct Node {
    Kind kind = Kind::file;
    bool linked = false;                   // it has a name
    std::string text;                      // of a file; the target of a link
    std::map<std::string, Node *> entries; // of a directory
};

// Where a path leads: a name in a directory, and what is there, if anything.
struct Place {
    Node *dir = nullptr; // null when the path to it is broken
    std::string name;
    Node *node = nullptr;
};

struct Followed {
    Node *file;
    size_t told;
    std::string head; // the first bytes, as they were told
};

// One watch.
struct Promise {
    std::string path;
    Node *dir = nullptr; // where the path led when last looked
    std::string name;
    std::vector<Node *> arrivals; // came to that place since
    std::vector<Followed> files;  // oldest first
};

// What is told next: a text, and whether a piece may end before its end.
struct News {
    size_t index;
    std::string_view text;
    bool shorter;
};

class Model
{
  public:
    std::deque<Promise> promises;

    Model();
    Model(const Model &) = delete;
    Model &operator=(const Model &) = delete;

    // Paths are relative to the root, and so are the targets of links.
    Place find(const std::string &path, bool through_link);

    // What the kernel has done. Parents exist.
    Node *put(const std::string &path, Kind kind, const std::string &text);
    void move(const std::string &from, const std::string &to);
    void remove(const std::string &path); // with all that is in it

    // A watch begins at the end of the file.
    Promise *follow(const std::string &path);
    // It looks where the path leads now.
    void look(Promise *promise);
    // What it tells next, after a look; an empty text for nothing.
    News next(Promise *promise);
    void told(Promise *promise, size_t index, std::string_view text);

  private:
    std::deque<Node> nodes; // all of the session
    Node *root;

    void came(const Place &place);
    void left(const Place &place);
};
