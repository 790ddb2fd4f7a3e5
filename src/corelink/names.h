// names.h - what is written for a node's name, also for a node that has none.
#pragma once

#include <string_view>

#include "corelink/decimal.h"
#include "vnlib/corelink.h"

namespace vn::corelink {

// A name in running text. Only the parser makes nodes without a tag, and only inside arrays, where
// no name is written; one that was moved elsewhere shows what printf shows for a missing text.
inline std::string_view printed_name(const clparse_node &node)
{
    return node.tag != nullptr ? node.tag : "(null)";
}

// A member's name in a path: its tag or, for want of one, its position, by which it can be found.
inline std::string_view path_name(const clparse_node &member, const Decimal &position)
{
    return member.tag != nullptr ? member.tag : position.text();
}

} // namespace vn::corelink
