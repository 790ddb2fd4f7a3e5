// Texts of SCSI codes beside libsgutils2. One row is a pass over all codes of a kind. The peer
// writes its text into a buffer of the caller's; ours hands out a pointer to a constant.
#include "bench.h"

#include <cstring>
#include <strings.h>

#include "vnlib/scsi.h"

#ifdef VN_BENCH_SGUTILS2
extern "C" {
#include <scsi/sg_lib.h>
}
#endif

namespace {

#ifdef VN_BENCH_SGUTILS2
char peer_text[256];

const char *peer_sense_code(unsigned code)
{
    return sg_get_asc_ascq_str(static_cast<int>(code >> 8), static_cast<int>(code & 0xFF),
                               sizeof peer_text, peer_text);
}
const char *peer_command(unsigned code)
{
    sg_get_opcode_name(static_cast<unsigned char>(code), 0, sizeof peer_text, peer_text);
    return peer_text;
}
const char *peer_sense_key(unsigned code)
{
    return sg_get_sense_key_str(static_cast<int>(code), sizeof peer_text, peer_text);
}
const char *peer_status(unsigned code)
{
    sg_get_scsi_status_str(static_cast<int>(code), sizeof peer_text, peer_text);
    return peer_text;
}
const char *peer_device_type(unsigned code)
{
    return sg_get_pdt_str(static_cast<int>(code), sizeof peer_text, peer_text);
}
#define VN_PEER(function) function
#else
#define VN_PEER(function) nullptr
#endif

struct Lookup {
    const char *name;
    unsigned codes;
    const char *(*vnlib)(unsigned code);
    const char *(*peer)(unsigned code);
    unsigned same; // a code that both sides name alike, but for case and a prefix
};
constexpr Lookup kLookups[] = {
    {"sense_code", 0x10000,
     [](unsigned code) {
         return get_ascascq_info(static_cast<unsigned char>(code >> 8),
                                 static_cast<unsigned char>(code));
     },
     VN_PEER(peer_sense_code), 0x2900},
    {"version", 0x10000,
     [](unsigned code) { return get_scsi_standard(static_cast<uint16_t>(code)); }, nullptr, 0},
    {"command", 0x100,
     [](unsigned code) { return get_command_info(static_cast<unsigned char>(code)); },
     VN_PEER(peer_command), 0x12},
    {"sense_key", 0x10,
     [](unsigned code) { return get_condition_info(static_cast<unsigned char>(code)); },
     VN_PEER(peer_sense_key), 0x05},
    {"status", 0x100,
     [](unsigned code) { return get_status_info(static_cast<unsigned char>(code)); },
     VN_PEER(peer_status), 0x28},
    {"device_type", 0x20,
     [](unsigned code) { return get_device_type(static_cast<unsigned char>(code)); },
     VN_PEER(peer_device_type), 0x02},
    {"revision", 0x100,
     [](unsigned code) { return get_scsi_revision(static_cast<unsigned char>(code)); }, nullptr, 0},
    {"severity", 0x100,
     [](unsigned code) {
         return get_condition_severity(static_cast<unsigned char>(code)) == 0 ? "" : " ";
     },
     nullptr, 0},
};

bool peers_agree()
{
    for (const Lookup &lookup : kLookups) {
        if (lookup.peer == nullptr) continue;
        const char *const ours = lookup.vnlib(lookup.same), *const theirs =
                                                                lookup.peer(lookup.same);
        const bool same =
            strcasestr(theirs, ours) != nullptr || strcasestr(ours, theirs) != nullptr;
        if (!same) fprintf(stderr, "%s: '%s' is not '%s'\n", lookup.name, ours, theirs);
        if (!same) return false;
    }
    return true;
}

void pass(benchmark::State &state, const char *(*look_up)(unsigned), unsigned codes)
{
    for (auto _ : state) {
        for (unsigned code = 0; code < codes; ++code) benchmark::DoNotOptimize(look_up(code));
    }
    state.SetItemsProcessed(state.iterations() * codes);
}

void add_row(const Lookup &lookup, const char *who, const char *(*look_up)(unsigned))
{
    benchmark::RegisterBenchmark(
        bench::row(lookup.name, who, lookup.codes).c_str(),
        [look_up, codes = lookup.codes](benchmark::State &state) { pass(state, look_up, codes); });
}

} // namespace

int main(int argc, char **argv)
{
    for (const Lookup &lookup : kLookups) {
        add_row(lookup, "vnlib", lookup.vnlib);
        if (lookup.peer != nullptr) add_row(lookup, "sgutils2", lookup.peer);
    }
    return bench::run(argc, argv, peers_agree);
}
