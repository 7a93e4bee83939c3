#include "watch_model.h"

#include "../vantor/vantor.h"

#include <algorithm>

constexpr size_t head_max = 1024;
constexpr int links_max = 40;
constexpr size_t files_max = 16; // more than that are told in several goes

// ---- the tree ----

Model::Model()
{
    root = &nodes.emplace_back();
    root->kind = Kind::directory;
    root->linked = true;
}

Place
Model::find(const std::string &path, bool through_link)
{
    std::string rest = path;
    Node *dir = root;
    for (int links = 0;;) {
        size_t slash = rest.find('/');
        std::string name = rest.substr(0, slash);
        bool last = slash == std::string::npos;
        auto entry = dir->entries.find(name);
        Node *node = entry == dir->entries.end() ? nullptr : entry->second;
        if (node != nullptr && node->kind == Kind::link && (!last || through_link)) {
            if (++links > links_max)
                return {};
            rest = last ? node->text : node->text + rest.substr(slash);
            dir = root;
            continue;
        }
        if (last)
            return {dir, name, node};
        if (node == nullptr || node->kind != Kind::directory)
            return {};
        dir = node;
        rest.erase(0, slash + 1);
    }
}

void
Model::came(const Place &place)
{
    for (Promise &promise : promises) {
        std::vector<Node *> &list = promise.arrivals;
        if (promise.dir == place.dir && promise.name == place.name &&
            std::find(list.begin(), list.end(), place.node) == list.end())
            list.push_back(place.node);
    }
}

void
Model::left(const Place &place)
{
    for (Promise &promise : promises) {
        std::vector<Node *> &list = promise.arrivals;
        if (promise.dir == place.dir)
            list.erase(std::remove(list.begin(), list.end(), place.node), list.end());
    }
}

Node *
Model::put(const std::string &path, Kind kind, const std::string &text)
{
    Place place = find(path, kind == Kind::file);
    place.node = &nodes.emplace_back();
    place.node->kind = kind;
    place.node->linked = true;
    place.node->text = text;
    place.dir->entries[place.name] = place.node;
    came(place);
    return place.node;
}

void
Model::move(const std::string &from, const std::string &to)
{
    Place old = find(from, false);
    Place fresh = find(to, false);
    if (old.node == fresh.node)
        return;
    if (fresh.node != nullptr)
        remove(to);
    old.dir->entries.erase(old.name);
    fresh.dir->entries[fresh.name] = old.node;
    fresh.node = old.node;
    if (old.dir != fresh.dir)
        left(old);
    came(fresh);
}

void
Model::remove(const std::string &path)
{
    Place place = find(path, false);
    while (!place.node->entries.empty())
        remove(path + "/" + place.node->entries.begin()->first);
    place.node->linked = false;
    place.dir->entries.erase(place.name);
    left(place);
}

// ---- one watch ----

Promise *
Model::follow(const std::string &path)
{
    Place place = find(path, true);
    Promise &promise = promises.emplace_back();
    promise.path = path;
    promise.dir = place.dir;
    promise.name = place.name;
    const std::string &text = place.node->text;
    promise.files.push_back({place.node, text.size(), text.substr(0, head_max)});
    return &promise;
}

static std::vector<Followed>::iterator
find_file(std::vector<Followed> *files, const Node *node)
{
    return std::find_if(files->begin(), files->end(),
                        [node](const Followed &followed) { return followed.file == node; });
}

// Files that came and went are told in the order in which they first came; the one at the
// path is the newest, also when it was there before.
void
Model::look(Promise *promise)
{
    std::vector<Followed> &files = promise->files;
    for (Node *node : promise->arrivals)
        if (node->kind == Kind::file && find_file(&files, node) == files.end())
            files.push_back({node, 0, ""});
    promise->arrivals.clear();
    Place place = find(promise->path, true);
    promise->dir = place.dir;
    promise->name = place.name;
    if (place.node == nullptr || place.node->kind != Kind::file)
        return;
    auto known = find_file(&files, place.node);
    if (known == files.end())
        files.push_back({place.node, 0, ""});
    else
        std::rotate(known, known + 1, files.end());
}

// Cut: behind the new end. Written anew, which shows in the first bytes: from the start.
static void
notice_truncation(Followed *followed)
{
    const std::string &text = followed->file->text;
    size_t length = std::min(followed->head.size(), text.size());
    if (text.compare(0, length, followed->head, 0, length) != 0)
        followed->told = 0;
    else
        followed->told = std::min(followed->told, text.size());
    followed->head.resize(std::min(followed->head.size(), followed->told));
}

// Whole lines, as many as fit; of a line that does not fit, what fits.
static std::string_view
piece(std::string_view rest, bool ended)
{
    if (rest.size() < VANTOR_TEXT_MAX && ended)
        return rest;
    std::string_view window = rest.substr(0, VANTOR_TEXT_MAX);
    size_t newline = window.rfind('\n');
    if (newline != std::string_view::npos)
        return window.substr(0, newline + 1);
    return rest.size() < VANTOR_TEXT_MAX ? std::string_view() : window;
}

News
Model::next(Promise *promise)
{
    std::vector<Followed> &files = promise->files;
    bool many = files.size() > files_max;
    for (size_t i = 0; i < files.size();) {
        Followed &followed = files[i];
        size_t newer = files.size() - 1 - i;
        notice_truncation(&followed);
        bool unlinked = !followed.file->linked;
        std::string_view text = followed.file->text;
        text = piece(text.substr(followed.told), newer > 0 || unlinked);
        if (!text.empty())
            return {i, text, many};
        if (newer > 1 || (newer == 1 && unlinked))
            files.erase(files.begin() + static_cast<std::ptrdiff_t>(i));
        else
            i++;
    }
    return {0, {}, false};
}

void
Model::told(Promise *promise, size_t index, std::string_view text)
{
    Followed &followed = promise->files[index];
    followed.head.append(text, 0, head_max - followed.head.size());
    followed.told += text.size();
}
