// site_order.cpp - sites change place only by one block more or less; see site_order.h.
#include "memcheck/site_order.h"

#include "memcheck/ring.h"

namespace vn::memcheck {

SiteOrder::SiteOrder()
{
    make_empty(sentinel_);
}

void SiteOrder::keep_unused(Run &run)
{
    run.next_unused = unused_;
    unused_ = &run;
}

Run &SiteOrder::unused_run()
{
    Run &run = *unused_;
    unused_ = run.next_unused;
    return run;
}

// The site, already in its place, becomes this end of its neighbour's run if they are equal, else a
// run of its own.
void SiteOrder::join(Site &site, Site &neighbour, Site *Run::*end)
{
    if (neighbour.live_count == site.live_count) {
        site.run = neighbour.run;
        site.run->*end = &site;
    } else {
        site.run = &unused_run();
        site.run->first = site.run->last = &site;
    }
}

void SiteOrder::leave_run(const Site &site)
{
    Run &run = *site.run;
    if (run.first == run.last)
        keep_unused(run);
    else if (run.first == &site)
        run.first = site.next;
    else if (run.last == &site)
        run.last = site.prev;
}

void SiteOrder::add(Site &site)
{
    keep_unused(*site.run);
    site.live_count = 1;
    link_after(sentinel_, site);
    ++size_;
    join(site, *site.next, &Run::first);
}

void SiteOrder::raise(Site &site)
{
    Site &last = *site.run->last;
    leave_run(site);
    if (&last != &site) {
        unlink(site);
        link_after(last, site);
    }
    ++site.live_count;
    join(site, *site.next, &Run::first);
}

void SiteOrder::lower(Site &site)
{
    Site &first = *site.run->first;
    leave_run(site);
    if (&first != &site) {
        unlink(site);
        link_after(*first.prev, site);
    }
    if (--site.live_count == 0) {
        unlink(site);
        --size_;
        site.run = &unused_run();
        return;
    }
    join(site, *site.prev, &Run::last);
}

} // namespace vn::memcheck
