// query.h - finding a node by its dotted path.
#pragma once

#include <cstddef>

#include "vnlib/corelink.h"

namespace vn::corelink {

inline constexpr int kAnyType = -1;

// A node and its 0-based place among its siblings; no node when the path leads nowhere.
struct Found {
    clparse_node *node = nullptr;
    size_t position = 0;
};

Found look_up(clparse_node *container, const char *path, int type);

} // namespace vn::corelink
