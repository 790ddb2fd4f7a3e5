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
// So the two ends of a run are all that must be found: its first site is looked up by count, and
// knows its last. The lookup table links the sites themselves; nothing here can fail.
#pragma once

#include "memcheck/records.h"
#include "memcheck/table.h"

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
    Site &first_with(int32_t count);
    void set_first(Site &site, Site &last);
    void join_in_front(Site &site);
    void leave_run(Site &site, Site &first);

    Site sentinel_{};
    uint32_t size_ = 0;
    Table<Site, &Site::next_by_count, &Site::live_count> first_of_run_;
};

} // namespace vn::memcheck
