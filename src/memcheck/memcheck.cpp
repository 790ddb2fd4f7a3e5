// memcheck.cpp - tracked allocation: what happens to a block on its way in and out.
//
// Off, a call is one test of the context and its flag, and then the caller's own allocator. On, a
// block passes through
//
//     caller's allocator -> guard.h (markers) -> registry.h (whose is it, is it whole?)
//
// and the count line of the screen is drawn anew. Memory for the records is obtained before the
// block is, so a failure anywhere leaves nothing behind.
#include "vnlib/memcheck.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <utility>

#include "memcheck/debugger.h"
#include "memcheck/guard.h"
#include "memcheck/records.h"
#include "memcheck/screen.h"

// With the tracker off the calls below are a test and a jump; inlined, what they do with the
// tracker on would cost them a stack frame. The context comes last, so that the other arguments are
// where they came in.
#define VN_OUT_OF_LINE [[gnu::noinline]]

namespace vn::memcheck {

namespace {

const char *printable(const char *site)
{
    return site != nullptr ? site : "(null)";
}

// Everything that recording a block will need, obtained before the block itself is.
struct Records {
    Owned<Block> block;
    Owned<Site> spare_site;

    explicit Records(Registry &registry)
        : block(new_record<Block>()), spare_site(registry.spare_site())
    {
    }
    [[nodiscard]] bool complete() const { return block != nullptr && spare_site != nullptr; }
};

void fill_guarded(Block &block, void *raw, size_t size, unsigned line)
{
    block.hold(raw, Kind::kGuarded);
    block.size = size;
    block.line = line;
    write_marker(block.post());
}

void *record(Context &context, Owned<Block> &&block, Owned<Site> &&spare_site, const char *site)
{
    void *const user = block->user();
    context.registry.add(std::move(block), site, std::move(spare_site));
    return user;
}

// A block without a site is not recorded and not handed out. Only the C library's blocks can be
// given back: there is no telling how another allocator wants its own released.
void *abandon(vn_alloc_fn alloc, void *raw)
{
    if (alloc == vn_malloc || alloc == malloc) free(raw);
    return nullptr;
}

void *out_of_memory()
{
    errno = ENOMEM;
    return nullptr;
}

VN_OUT_OF_LINE void *allocate_guarded(vn_alloc_fn alloc, size_t size, const char *site,
                                      unsigned line, Context &context)
{
    if (size > kLargestGuarded) return out_of_memory();
    Records records(context.registry);
    if (!records.complete()) return nullptr;
    void *const raw = alloc(size + kGuardSize);
    if (raw == nullptr) return nullptr;
    context.count_line.add(1);
    write_marker(raw);
    fill_guarded(*records.block, raw, size, line);
    if (site == nullptr) return abandon(alloc, raw);
    return record(context, std::move(records.block), std::move(records.spare_site), site);
}

// The raw block, off the record. Ends the process if `ptr` is no live block.
void *strike_out(Context &context, const void *ptr, const char *site)
{
    const Owned<Block> block = context.registry.remove(ptr);
    if (block == nullptr) last_words("Could not find the allocation to free (%s)", printable(site));
    return block->raw();
}

VN_OUT_OF_LINE void release_guarded(vn_free_fn release, void *ptr, const char *site,
                                    Context &context)
{
    release(strike_out(context, ptr, site));
    context.count_line.add(-1);
}

void *resize_raw(void *raw, size_t size)
{
    return size > kLargestGuarded ? out_of_memory() : realloc(raw, size + kGuardSize);
}

// Whatever allocator made the block, it is resized by the C library. When that fails the block
// stays what and where it was.
VN_OUT_OF_LINE void *resize_guarded(void *ptr, size_t size, const char *site, unsigned line,
                                    Context &context)
{
    Block *const lifted = context.registry.lift(ptr);
    if (lifted == nullptr)
        last_words("Could not find the allocation to realloc (%s:%u)", printable(site), line);
    Owned<Site> spare_site = context.registry.spare_site();
    void *const raw = spare_site != nullptr ? resize_raw(lifted->raw(), size) : nullptr;
    if (raw == nullptr) {
        context.registry.put_back(*lifted);
        return nullptr;
    }
    Owned<Block> block = context.registry.remove_lifted(*lifted);
    fill_guarded(*block, raw, size, line);
    if (site == nullptr) return abandon(malloc, raw);
    return record(context, std::move(block), std::move(spare_site), site);
}

VN_OUT_OF_LINE void *allocate_for_device(vn_alloc_fn alloc, size_t size, const char *site,
                                         Context &context)
{
    if (site == nullptr) return alloc(size); // handed out all the same, but not on record
    Records records(context.registry);
    if (!records.complete()) return nullptr;
    void *const raw = alloc(size);
    if (raw == nullptr) return nullptr;
    records.block->hold(raw, Kind::kDevice);
    records.block->size = size;
    return record(context, std::move(records.block), std::move(records.spare_site), site);
}

} // namespace

} // namespace vn::memcheck

using namespace vn::memcheck;

extern "C" {

void *vn_malloc(size_t size)
{
    return calloc(1, size);
}

void vn_free(void *ptr)
{
    free(ptr);
}

void *vn_memcheck_malloc(vn_alloc_fn alloc, size_t size, const char *site, unsigned line)
{
    if (Context *const context = tracking()) [[unlikely]]
        return allocate_guarded(alloc, size, site, line, *context);
    return alloc(size);
}

void vn_memcheck_free(vn_free_fn release, void *ptr, const char *site)
{
    if (Context *const context = tracking()) [[unlikely]]
        return release_guarded(release, ptr, site, *context);
    release(ptr);
}

void *vn_memcheck_realloc(void *ptr, size_t size, const char *site, unsigned line)
{
    if (ptr == nullptr) return vn_memcheck_malloc(vn_malloc, size, site, line);
    if (size == 0) {
        vn_memcheck_free(vn_free, ptr, site);
        return nullptr;
    }
    if (Context *const context = tracking()) [[unlikely]]
        return resize_guarded(ptr, size, site, line, *context);
    return realloc(ptr, size);
}

void *vn_dmacheck_malloc(vn_alloc_fn alloc, size_t size, const char *site)
{
    if (Context *const context = tracking()) [[unlikely]]
        return allocate_for_device(alloc, size, site, *context);
    return alloc(size);
}

int vn_dma_free(vn_dma_free_fn release, void *ptr, size_t length, const char *site)
{
    if (Context *const context = tracking()) [[unlikely]]
        return release(strike_out(*context, ptr, site), length);
    return release(ptr, length);
}

int vn_memcheck_start(void)
{
    return start() ? 0 : -1;
}

int vn_memcheck_stop(void)
{
    return stop() ? 0 : -1;
}

int gotoline(int line, const char *text)
{
    if (current_context() == nullptr) return -1;
    show_line(line, text != nullptr ? std::string_view(text) : std::string_view());
    return 0;
}

int memdbg_printf(const char *format, ...)
{
    va_list args;
    va_start(args, format);
    memdbg_vprintf(format, args);
    va_end(args);
    return 0;
}

void memdbg_vprintf(const char *format, va_list args)
{
    if (Context *const context = current_context()) return context->pane.print(format, args);
    char text[kLongestPiece + 1] = "";
    vsnprintf(text, sizeof text, format, args);
    write_out(text);
}
}
