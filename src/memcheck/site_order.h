// site_order.h - all sites in ascending order of live count, kept so in constant time.
//
//     sentinel - a(1) - b(1) - c(4) - d(9) - e(9) - f(9) - sentinel
//                '-- run --'  'run'   '----- run -----'
//
// Neighbours of equal count form a run. The order among equals is what moving one step at a time
// past every larger (or smaller) neighbour leaves:
//   - a new site enters at the very front;
//   - a site that gains a block passes the rest of its run and stops right behind it;
//   - a site that loses one passes the front of its run and stops right before it.
// So the two ends of a run are all that must be found, and each site knows its run. There are never
// more runs than sites: each brings one along when it enters and takes one away when it leaves, and
// nothing here can fail.
#pragma once

#include "memcheck/records.h"

namespace vn::memcheck {

class SiteOrder {
public:
    SiteOrder();

    void add(Site &site);   // the site's first block
    void raise(Site &site); // one block more
    void lower(Site &site); // one block less; with none left the site is out of the list

    Site &sentinel() { return sentinel_; }
    [[nodiscard]] uint32_t size() const { return size_; }

private:
    void join(Site &site, Site &neighbour, Site *Run::*end);
    void leave_run(const Site &site);
    Run &unused_run();
    void keep_unused(Run &run);

    Site sentinel_{};
    uint32_t size_ = 0;
    Run *unused_ = nullptr;
};

} // namespace vn::memcheck
