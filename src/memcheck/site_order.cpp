// site_order.cpp - sites change place only by one block more or less; see site_order.h.
#include "memcheck/site_order.h"

#include "memcheck/ring.h"

namespace vn::memcheck {

SiteOrder::SiteOrder()
{
    make_empty(sentinel_);
}

// There is such a site. Its hash is the count itself: counts are dense, and neighbours get buckets
// of their own.
Site &SiteOrder::first_with(int32_t count)
{
    return *first_of_run_.find(static_cast<uint32_t>(count),
                               [&](const Site &site) { return site.live_count == count; });
}

void SiteOrder::set_first(Site &site, Site &last)
{
    site.run_last = &last;
    first_of_run_.insert(site);
}

// The site, already in its place, is the first of its count from now on. If there are others, the
// first of them follows it.
void SiteOrder::join_in_front(Site &site)
{
    Site &next = *site.next;
    const bool others = next.live_count == site.live_count;
    if (others) first_of_run_.remove(next);
    set_first(site, others ? *next.run_last : site);
}

void SiteOrder::leave_run(Site &site, Site &first)
{
    if (&first != &site) {
        if (first.run_last == &site) first.run_last = site.prev;
        return;
    }
    first_of_run_.remove(site);
    if (site.run_last != &site) set_first(*site.next, *site.run_last);
}

void SiteOrder::add(Site &site)
{
    site.live_count = 1;
    link_after(sentinel_, site);
    ++size_;
    join_in_front(site);
}

void SiteOrder::raise(Site &site)
{
    Site &first = first_with(site.live_count);
    Site &last = *first.run_last;
    leave_run(site, first);
    if (&last != &site) {
        unlink(site);
        link_after(last, site);
    }
    ++site.live_count;
    join_in_front(site);
}

void SiteOrder::lower(Site &site)
{
    Site &first = first_with(site.live_count);
    leave_run(site, first);
    if (&first != &site) {
        unlink(site);
        link_after(*first.prev, site);
    }
    if (--site.live_count == 0) {
        unlink(site);
        --size_;
        return;
    }
    if (site.prev->live_count == site.live_count)
        first_with(site.live_count).run_last = &site;
    else
        set_first(site, site);
}

} // namespace vn::memcheck
