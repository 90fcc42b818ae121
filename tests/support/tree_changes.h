// What happened to a tree between two looks at it.
#pragma once

#include "support/files.h"

namespace support {

// One line an entry that is not as it was, in the order of the paths:
//   new KIND MODE PATH, gone KIND PATH, changed KIND MODE PATH (other bytes), mode OLD to NEW KIND PATH
// A link is shown without a mode.
std::string changes(const tree &before, const tree &after);

// The tree of everything below `directory` of a tree, by its path relative to that.
tree below(const tree &whole, const std::string &directory);

} // namespace support
