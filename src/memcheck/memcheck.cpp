// memcheck.cpp - tracked allocation: what happens to a block on its way in and out.
//
// Off, a call is one test of the context and its flag, and then the caller's own allocator. On, a
// block passes through
//
//     caller's allocator -> guard.h (markers) -> registry.h (whose is it, is it whole?)
//
// and the count line of the screen is drawn anew. A failure anywhere leaves nothing behind: the
// block is given back, or where that is impossible, memory for the records was obtained before the
// block.
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

// Blocks of the C library can be given back; there is no telling how another allocator wants its
// own released.
bool can_be_undone(vn_alloc_fn alloc)
{
    return alloc == malloc || alloc == vn_malloc;
}

void *abandon(vn_alloc_fn alloc, void *raw)
{
    if (can_be_undone(alloc)) free(raw);
    return nullptr;
}

// False when there is no memory for recording what `alloc` will have made.
bool prepare(Registry &registry, vn_alloc_fn alloc, Records &records)
{
    if (can_be_undone(alloc)) return true;
    records = {Owned<Block>(new_record<Block>()), registry.spare_site()};
    return records.block != nullptr && records.site != nullptr;
}

void *out_of_memory()
{
    errno = ENOMEM;
    return nullptr;
}

// A block without a site is counted, but not recorded and not handed out.
VN_OUT_OF_LINE void *allocate_guarded(vn_alloc_fn alloc, size_t size, const char *site,
                                      unsigned line, Context &context)
{
    if (size > kLargestGuarded) return out_of_memory();
    Records records;
    if (!prepare(context.registry, alloc, records)) return nullptr;
    auto *const raw = static_cast<unsigned char *>(alloc(size + kGuardSize));
    if (raw == nullptr) return nullptr;
    unsigned char *const user = raw + kMarkerSize;
    write_marker(raw);
    write_marker(user + size);
    const Particulars block = {raw, Kind::kGuarded, size, line};
    if (site != nullptr && !context.registry.add(block, site, std::move(records)))
        return abandon(alloc, raw);
    context.count_line.add(1);
    // NOLINTNEXTLINE(clang-analyzer-unix.Malloc): what comes from vn_malloc can be undone
    return site != nullptr ? user : abandon(alloc, raw);
}

// The raw block, off the record. Ends the process if `ptr` is no live block.
void *strike_out(Context &context, const void *ptr, const char *site)
{
    void *const raw = context.registry.remove(ptr);
    if (raw == nullptr) last_words("Could not find the allocation to free (%s)", printable(site));
    return raw;
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
    Records records = {nullptr, context.registry.spare_site()};
    void *const raw = records.site != nullptr ? resize_raw(lifted->raw(), size) : nullptr;
    if (raw == nullptr) {
        context.registry.put_back(*lifted);
        return nullptr;
    }
    records.block = context.registry.remove_lifted(*lifted);
    unsigned char *const user = static_cast<unsigned char *>(raw) + kMarkerSize;
    write_marker(user + size);
    if (site == nullptr) return abandon(malloc, raw);
    context.registry.add({raw, Kind::kGuarded, size, line}, site, std::move(records));
    return user;
}

VN_OUT_OF_LINE void *allocate_for_device(vn_alloc_fn alloc, size_t size, const char *site,
                                         Context &context)
{
    if (site == nullptr) return alloc(size); // handed out all the same, but not on record
    Records records;
    if (!prepare(context.registry, alloc, records)) return nullptr;
    void *const raw = alloc(size);
    if (raw == nullptr) return nullptr;
    if (context.registry.add({raw, Kind::kDevice, size, 0}, site, std::move(records))) return raw;
    return abandon(alloc, raw);
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
