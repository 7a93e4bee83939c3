// Sessions of the editor, made up from a number.
#pragma once

#include <random>

#include "display_session.h"

DisplaySession random_session(unsigned seed, const std::vector<std::string> &types,
                              bool with_resizes);

// The shortest session found that still goes wrong, with what is wrong in it.
DisplaySession shortened(DisplaySession session, DisplayOutcome *outcome);
