// site_order.cpp - sites change place only by one block more or less; see site_order.h.
#include "memcheck/site_order.h"

#include "memcheck/ring.h"

namespace vn::memcheck {

namespace {

uint32_t hash_count(int32_t count)
{
    return static_cast<uint32_t>(count); // counts are dense: neighbours get buckets of their own
}

} // namespace

SiteOrder::SiteOrder()
{
    make_empty(sentinel_);
}

Site *SiteOrder::first_with(int32_t count)
{
    return first_of_run_.find(hash_count(count),
                              [&](const Site &site) { return site.live_count == count; });
}

void SiteOrder::set_first(Site &site, Site &last)
{
    site.run_last = &last;
    first_of_run_.insert(site, hash_count(site.live_count));
}

// The site, already in its place, is the first of its count from now on.
void SiteOrder::join_in_front(Site &site)
{
    Site *const run = first_with(site.live_count);
    if (run != nullptr) first_of_run_.remove(*run);
    set_first(site, run != nullptr ? *run->run_last : site);
}

void SiteOrder::leave_run(Site &site)
{
    Site &first = *first_with(site.live_count);
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
    Site *const last = first_with(site.live_count)->run_last;
    leave_run(site);
    if (last != &site) {
        unlink(site);
        link_after(*last, site);
    }
    ++site.live_count;
    join_in_front(site);
}

void SiteOrder::lower(Site &site)
{
    Site *const first = first_with(site.live_count);
    leave_run(site);
    if (first != &site) {
        unlink(site);
        link_after(*first->prev, site);
    }
    if (--site.live_count == 0) {
        unlink(site);
        --size_;
        return;
    }
    if (Site *const run = first_with(site.live_count))
        run->run_last = &site;
    else
        set_first(site, site);
}

} // namespace vn::memcheck
