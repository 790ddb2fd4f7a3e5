// walk.h - the checker's way through all blocks, in steps, while blocks come and go between them.
//
// A pass visits every site, the quietest first, and in it every block, the newest first. The
// registry is free between steps, so the position is corrected whenever what it points at leaves.
// Sites also change place: one that slips from the part still ahead to the part already behind has
// not been visited, which its `last_pass` shows, and the pass starts over from the front (skipping
// what it has seen) until no such site is left.
//
// All calls are made with the registry locked.
#pragma once

#include "memcheck/records.h"
#include "memcheck/site_order.h"

namespace vn::memcheck {

class Walk {
public:
    explicit Walk(SiteOrder &sites) : sites_(sites), site_(&sites.sentinel()) {}

    void begin();
    // One step of bounded cost. `*found` is the next block, or null when the step met none.
    // False at the end of the pass.
    bool step(Block **found);
    [[nodiscard]] bool under_way() const { return under_way_; }

    void site_appears(Site &site) const { site.last_pass = pass_; } // new blocks: next pass
    void site_leaves(Site &site);
    void block_leaves(const Block &block);

private:
    void enter(Site &site);

    SiteOrder &sites_;
    Site *site_;             // where the walk stands: a site, or the sentinel
    Block *block_ = nullptr; // the next block there
    uint32_t pass_ = 0;      // its number; may wrap, as sites are never more than one behind
    uint32_t unvisited_ = 0; // sites whose last_pass is not this pass
    bool under_way_ = false;
};

} // namespace vn::memcheck
