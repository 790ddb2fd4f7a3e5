// function_node.h - using the node that a function node yields.
//
// Every resolve() is followed by one release_result(), whatever it gave; only a merge does not make
// the call to a target that gave nothing.
#pragma once

#include "vnlib/corelink.h"

namespace vn::corelink {

// The node to use in place of a function node; null when it has nothing to give.
inline clparse_node *resolve(clparse_node &function)
{
    const auto &value = function.value.function;
    return value.resolve != nullptr ? value.resolve(&function, value.priv) : nullptr;
}

// Tells a function node, if there is one, that its result is no longer used: 0, or the failure that
// its callback reports.
inline int release_result(clparse_node *function)
{
    if (function == nullptr || function->value.function.release == nullptr) return 0;
    return function->value.function.release(function, function->value.function.priv);
}

} // namespace vn::corelink
