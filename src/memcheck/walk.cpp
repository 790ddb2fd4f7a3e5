// walk.cpp - every block in each pass, a few at a time; see walk.h.
#include "memcheck/walk.h"

namespace vn::memcheck {

void Walk::begin()
{
    ++pass_;
    unvisited_ = sites_.size();
    under_way_ = true;
    enter(*sites_.sentinel().next);
}

void Walk::enter(Site &site)
{
    site_ = &site;
    block_ = site.blocks.next;
}

bool Walk::step(Block **found)
{
    *found = nullptr;
    if (unvisited_ == 0) {
        under_way_ = false;
    } else if (site_ == &sites_.sentinel() || site_->last_pass == pass_) {
        enter(*site_->next);
    } else if (block_ == &site_->blocks) {
        site_->last_pass = pass_;
        --unvisited_;
    } else {
        *found = block_;
        block_ = block_->next;
    }
    return under_way_;
}

void Walk::site_leaves(Site &site)
{
    if (site.last_pass != pass_) --unvisited_;
    if (site_ == &site) enter(*site.next);
}

void Walk::block_leaves(const Block &block)
{
    if (block_ == &block) block_ = block.next;
}

} // namespace vn::memcheck
