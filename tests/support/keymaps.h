// What the tests share that stand in for the editor's keymap functions.
#pragma once

#include "../../Cli/keys.h"

#include <string>
#include <vector>

using Calls = std::vector<std::string>;

// Which of the five maps a stand-in was called for.
inline std::string
place_of(Keymap map)
{
    for (int i = 0; i < 5; i++)
        if (maps[i] == map)
            return std::to_string(i);
    return "unknown map";
}
