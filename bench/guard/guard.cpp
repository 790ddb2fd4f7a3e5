// guard.cpp - a fixed piece of work for each family, whose instructions `./dev bench --guard`
// counts on the host and `./dev bench --target` under qemu-arm.
//
//     guard FILE [workload...]
//
// writes a line "<workload> <units> <unit>" to FILE for each part that was counted, in order. The
// work is the same in every run: fixed seeds, no clock, no sockets. On the host, where the program
// is linked statically, a workload named "-portable" has the versions for particular processors
// switched off; on the target the processor has none of them.
#include "counted.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <syslog.h>
#include <vector>

#include "vnlib/base32.h"
#include "vnlib/base64.h"
#include "vnlib/bits.h"
#include "vnlib/check_lock.h"
#include "vnlib/corelink.h"
#include "vnlib/crc32c.h"
#include "vnlib/hash.h"
#include "vnlib/iovec.h"
#include "vnlib/list_sort.h"
#include "vnlib/log.h"
#include "vnlib/md5.h"
#include "vnlib/memcheck.h"
#include "vnlib/queue.h"
#include "vnlib/red_black_tree.h"
#include "vnlib/remote_gui.h"
#include "vnlib/sax.h"
#include "vnlib/scsi.h"
#include "vnlib/sha1.h"
#include "vnlib/sha256.h"
#include "vnlib/vnstrings.h"

#ifdef VN_GUARD_FORCES_VERSIONS
#include "support/cpu.h"
#endif

namespace {

// ---- the frame
// -------------------------------------------------------------------------------------

FILE *report;
std::vector<std::string> wanted;

// What the compiler must believe to be used.
volatile uintptr_t sink;

template <typename Value>
void use(Value value)
{
    sink = sink + (uintptr_t)value;
}

// Runs `body` once for what only the first run pays (symbols, the processor's features, the
// allocator's first pages), then once counted. Both must leave things as they found them.
template <typename Body>
void count(const std::string &name, size_t units, const char *unit, Body body)
{
    bool chosen = wanted.empty();
    for (const std::string &prefix : wanted) chosen = chosen || name.starts_with(prefix);
    if (!chosen) return;
    body();
    guard::begin();
    body();
    guard::end();
    std::fprintf(report, "%s %zu %s\n", name.c_str(), units, unit);
}

// Counts `body` with the versions that the processor has, and with the portable one.
template <typename Body>
void count_versions(const std::string &name, size_t units, const char *unit, Body body)
{
    count(name, units, unit, body);
#ifdef VN_GUARD_FORCES_VERSIONS
    vn::cpu::force(vn::cpu::kNothing);
    count(name + "-portable", units, unit, body);
    vn::cpu::force(vn::cpu::kEverything);
#endif
}

class Random {
public:
    uint32_t next()
    {
        state_ = state_ * 6364136223846793005u + 1442695040888963407u;
        return static_cast<uint32_t>(state_ >> 33);
    }

private:
    uint64_t state_ = 1;
};

std::vector<uint8_t> random_bytes(size_t size)
{
    Random random;
    std::vector<uint8_t> bytes(size);
    for (uint8_t &byte : bytes) byte = static_cast<uint8_t>(random.next());
    return bytes;
}

constexpr size_t kBytes = 48 * 1024; // whole groups of base64 and base32, whole blocks of digests

void release(char *text)
{
    vn_memcheck_free(vn_free, text, "guard:0");
}

// ---- checksums, digests, codecs
// --------------------------------------------------------------------

void count_bits()
{
    std::vector<uint64_t> values(1024);
    Random random;
    for (uint64_t &value : values) value = (uint64_t{random.next()} << 32 | random.next()) | 1;
    count("bits", 6 * values.size(), "call", [&] {
        for (const uint64_t &value : values) {
            const auto low = static_cast<uint32_t>(value);
            use(clz(low) + ctz(low) + vn_ilog2(low) + vn_ilog2_64(value));
            use(cmpnumle64(&value, values.data()) + cmpnumbe64(&value, values.data()));
        }
    });
}

void count_crc32c()
{
    auto bytes = random_bytes(kBytes);
    std::vector<iovec> parts;
    for (size_t at = 0; at < bytes.size(); at += 37)
        parts.push_back({&bytes[at], std::min<size_t>(37, bytes.size() - at)});
    count_versions("crc32c", kBytes, "byte", [&] { use(crc32c(bytes.data(), kBytes)); });
    count_versions("crc32cv-37", kBytes, "byte",
                   [&] { use(crc32cv(parts.data(), static_cast<unsigned>(parts.size()))); });
}

template <typename Digest>
void count_digest(const std::string &name, Digest digest)
{
    const auto bytes = random_bytes(kBytes);
    uint8_t result[32] = {};
    count_versions(name, kBytes, "byte", [&] { digest(bytes.data(), kBytes, result); });
    count_versions(name + "-37", 100, "message", [&] {
        for (size_t i = 0; i < 100; ++i) digest(&bytes[i], 37, result);
    });
    use(result[0]);
}

void count_digests()
{
    count_digest("md5", [](const uint8_t *data, size_t size, uint8_t *digest) {
        md5_single(data, static_cast<int>(size), digest);
    });
    count_digest("sha1", [](const uint8_t *data, size_t size, uint8_t *digest) {
        sha1_single(data, static_cast<unsigned>(size), digest);
    });
    count_digest("sha256", [](const uint8_t *data, size_t size, uint8_t *digest) {
        sha256_single(data, static_cast<unsigned>(size), digest);
    });
}

void count_codecs()
{
    const auto bytes = random_bytes(kBytes);
    std::vector<char> text(2 * kBytes + 2);
    std::vector<uint8_t> back(2 * kBytes);
    for (const bool wrap : {false, true}) {
        const std::string lines = wrap ? "-lines" : "";
        unsigned length = 0;
        count_versions("base64-encode" + lines, kBytes, "byte",
                       [&] { length = base64_encode(bytes.data(), text.data(), kBytes, wrap); });
        length = base64_encode(bytes.data(), text.data(), kBytes, wrap);
        count_versions("base64-decode" + lines, kBytes, "byte",
                       [&] { use(base64_decode(text.data(), back.data(), length)); });
    }
    const auto room = static_cast<unsigned>(text.size());
    count_versions("base32-encode", kBytes, "byte",
                   [&] { use(base32_encode(bytes.data(), kBytes, text.data(), room, 3)); });
    base32_encode(bytes.data(), kBytes, text.data(), room, 3);
    count_versions("base32-decode", kBytes, "byte",
                   [&] { use(base32_decode(text.data(), back.data(), 3)); });
}

void count_iovec()
{
    auto bytes = random_bytes(kBytes);
    std::vector<uint8_t> flat(kBytes);
    std::vector<iovec> parts, spare(1024);
    for (size_t at = 0; at < kBytes; at += 64) parts.push_back({&bytes[at], 64});
    const auto number = static_cast<unsigned>(parts.size());
    count("iovec-gather", number, "part",
          [&] { linearise_iovec(parts.data(), number, flat.data(), kBytes); });
    count("iovec-scatter", number, "part", [&] {
        delinearise_to_iovec(parts.data(), static_cast<int>(number), flat.data(), kBytes);
    });
    count("iovec-size-locate-subset", number, "part", [&] {
        size_t offset = kBytes - 1;
        int index = 0;
        check_end_of_iov(parts.data(), static_cast<int>(number), &offset, &index);
        iovec *out = nullptr;
        unsigned out_count = 0;
        use(fill_iovec_subset(&out, &out_count, kBytes / 2, 100, spare.data(), 1024, parts.data(),
                              number));
        use(size_iovec(parts.data(), static_cast<int>(number)) + static_cast<size_t>(index));
    });
}

// ---- containers
// ------------------------------------------------------------------------------------

void count_tree()
{
    constexpr size_t kKeys = 4096;
    std::vector<uint32_t> keys(kKeys);
    Random random;
    for (uint32_t &key : keys) key = random.next();
    rb_node *tree = nullptr;
    const auto insert = [&] {
        for (uint32_t &key : keys) tree = rb_create_node(tree, key, key & 3, &key);
    };
    count("tree-insert-and-destroy", kKeys, "key", [&] {
        insert();
        rb_destroy_tree(&tree, nullptr);
    });
    insert();
    count("tree-find", kKeys, "key", [&] {
        for (const uint32_t key : keys) use(rb_search_tree(tree, key, key & 3));
    });
    std::vector<uint64_t> listed(kKeys);
    count("tree-list", kKeys, "key", [&] { use(rb_get_node_list(tree, listed.data(), kKeys)); });
    count("tree-erase-and-insert", kKeys, "key", [&] {
        for (const uint32_t key : keys) tree = rb_delete_node(tree, key, key & 3);
        insert();
    });
    rb_destroy_tree(&tree, nullptr);
}

void count_queue()
{
    constexpr size_t kItems = 1024;
    const auto pointer = [](uintptr_t key) { return reinterpret_cast<void *>(key + 1); };
    q_queue *const queue = q_init(
        kItems, 2,
        [](void *data, uintptr_t key) -> int {
            return reinterpret_cast<uintptr_t>(data) == key + 1;
        },
        [](void *, void *) -> int { return Q_RELEASE_FREE; }, [](void *, void *) { return 0; },
        nullptr);
    count("queue-life-cycle", kItems, "item", [&] {
        for (uintptr_t key = 0; key < kItems; ++key) q_add_queue(queue, pointer(key), key, nullptr);
        for (uintptr_t key = 0; key < kItems; ++key) use(q_refer(queue, key, 0));
        for (uintptr_t key = 0; key < kItems; ++key) q_q2l(queue, 0, key);
        for (uintptr_t key = 0; key < kItems; ++key) q_l2l(queue, 0, 1, key);
        q_delete(
            queue, [](void *, void *) { return 1; }, nullptr, nullptr);
    });
    for (uintptr_t key = 0; key < kItems; ++key) q_add_list(queue, pointer(key), 0, nullptr);
    count("queue-search-list", kItems, "item", [&] { use(q_refer_list(queue, 0, kItems - 1)); });
    count("queue-walk", kItems, "item", [&] {
        use(q_work_list(
            queue, 0, [](q_queue *, void *item, void *) -> int { return item != nullptr; },
            nullptr));
        use(q_listcount(queue, 0));
    });
    q_exit(queue, nullptr);
}

void count_hash_and_sort()
{
    const auto bytes = random_bytes(4096);
    const std::string text(4096, 'x');
    count("hash", 4 * 4096, "byte", [&] {
        use(hash_buf(bytes.data(), 4096) + hash_buf_64(bytes.data(), 4096));
        use(hash_str(text.c_str()) + hash_str_64(text.c_str()));
    });
    struct Item {
        list_link link;
        uint32_t key;
    };
    std::vector<Item> items(4096);
    count("list-sort", items.size(), "item", [&] {
        Random random;
        list_link head{&head, &head};
        for (Item &item : items) {
            item.key = random.next();
            item.link = {&head, head.prev};
            head.prev->next = &item.link;
            head.prev = &item.link;
        }
        __list_sort(&head, static_cast<int>(items.size()), [](list_link *a, list_link *b) -> int {
            const uint32_t left = reinterpret_cast<Item *>(a)->key;
            const uint32_t right = reinterpret_cast<Item *>(b)->key;
            return left < right ? -1 : left > right;
        });
        use(head.next);
    });
}

void count_locks()
{
    constexpr size_t kLocks = 1000;
    std::vector<char> locks(kLocks);
    check_lock_init();
    count("lock-registry", kLocks, "lock", [&] {
        for (size_t i = 0; i < kLocks; ++i) check_lock_add("guard.cpp", i % 251, &locks[i], 0);
        for (size_t i = 0; i < kLocks; ++i) check_lock_remove(&locks[i]);
    });
    check_lock_exit();
    vn_reference reference;
    vn_reference_prep(&reference, nullptr, nullptr);
    vn_reference_acquire(&reference);
    count("reference", 1000, "pair", [&] {
        for (int i = 0; i < 1000; ++i) {
            vn_reference_acquire(&reference);
            vn_reference_release(&reference);
        }
    });
    vn_reference_release(&reference);
}

// ---- strings and text
// ------------------------------------------------------------------------------

void count_strings()
{
    constexpr int kTimes = 200;
    char *text = nullptr;
    count("strings-new", kTimes, "string", [&] {
        for (int i = 0; i < kTimes; ++i) {
            __vn_asprintf(&text, "guard", 0, "%s=%d", "name", i);
            release(text);
        }
    });
    count("strings-append", kTimes, "append", [&] {
        __vn_asprintf(&text, "guard", 0, "%s", "");
        for (int i = 0; i < kTimes; ++i) vn_aasprintf(&text, ",%s=%d", "name", i);
        release(text);
    });
    std::string quoted;
    for (int i = 0; i < 500; ++i) quoted += "a \"quoted\" <word> & ";
    count("strings-escape-quotes", quoted.size(), "byte", [&] {
        __vn_asprintf(&text, "guard", 0, "%s", quoted.c_str());
        use(replace_quotes(&text));
        release(text);
    });
    count("strings-escape-xml", quoted.size(), "byte", [&] {
        __vn_asprintf(&text, "guard", 0, "%s", quoted.c_str());
        use(replace_xml_entities(&text, false));
        release(text);
    });
    const std::string hex(8192, 'a');
    std::vector<uint8_t> out(4096);
    count("strings-hex", hex.size(), "byte",
          [&] { use(hex_decode(hex.c_str(), out.data(), 4096)); });
    count("strings-words", 2 * kTimes, "call", [&] {
        for (unsigned i = 0; i < kTimes; ++i) {
            use(str2bool(i % 2 ? "Yes" : "no"));
            use(get_si_unit(uint64_t{1} << (i % 64)));
        }
    });
}

void count_sax()
{
    std::string mixed, plain = "<text>";
    for (int i = 0; i < 400; ++i)
        mixed += "<item id=\"" + std::to_string(i) +
                 "\" kind=\"disk\"><name>unit</name><!-- c --></item>\n";
    for (int i = 0; i < 400; ++i)
        plain += "The quick brown fox jumps over the lazy dog, and then. ";
    mixed = "<list>" + mixed + "</list>";
    plain += "</text>";
    sax_callbacks callbacks{};
    callbacks.start_element = [](const char *name, const sax_attribute *, void *) { use(*name); };
    callbacks.end_element = [](const char *name, void *) { use(*name); };
    callbacks.text = [](const char *, size_t length, void *) { use(length); };
    callbacks.comment = [](const char *comment, void *) { use(*comment); };
    const auto parse = [&](std::string &text) {
        FILE *const stream = fmemopen(text.data(), text.size(), "r");
        use(sax_parse_file(stream, &callbacks, nullptr));
        fclose(stream);
    };
    count("sax-mixed", mixed.size(), "byte", [&] { parse(mixed); });
    count("sax-text", plain.size(), "byte", [&] { parse(plain); });
}

void count_scsi()
{
    count("scsi", 256 * 9, "call", [] {
        for (unsigned i = 0; i < 256; ++i) {
            const auto byte = static_cast<unsigned char>(i);
            use(get_ascascq_info(byte, static_cast<unsigned char>(i * 7)));
            use(get_ascascq_info(0x04, byte));
            use(get_scsi_standard(static_cast<uint16_t>(i * 13)));
            use(get_scsi_revision(byte));
            use(get_device_type(byte));
            use(get_status_info(byte));
            use(get_condition_info(byte));
            use(get_condition_severity(byte));
            use(get_command_info(byte));
        }
    });
}

// ---- corelink
// --------------------------------------------------------------------------------------

std::string corelink_document(int members)
{
    std::string text;
    for (int i = 0; i < members; ++i) {
        const std::string number = std::to_string(i);
        text += "unit" + number + "={id=" + number + ",name=\"The unit " + number +
                "\",on=true,disks=[1,22,333],cache={size=65536,mode=\"write back\"}},";
    }
    return text + "last=1";
}

void count_corelink()
{
    constexpr int kMembers = 300;
    const std::string text = corelink_document(kMembers);
    count("corelink-parse", text.size(), "byte",
          [&] { clparse_stop(clparse_start(text.c_str())); });
    count("corelink-parse-small", 100, "document", [] {
        for (int i = 0; i < 100; ++i)
            clparse_stop(clparse_start("disk={slots=4,model=\"CN-4000\"},spare=true"));
    });
    clparse_head *const head = clparse_start(text.c_str());
    count("corelink-number-by-path", kMembers, "look-up", [&] {
        uint64_t value = 0;
        for (int i = 0; i < kMembers; ++i)
            use(clparse_get_number(head, &value, "unit%d.cache.size", i % 30));
        use(value);
    });
    count("corelink-update", text.size(), "byte", [&] { use(clparse_update(head, head)); });
    clparse_head *const change = clparse_start("unit7.id=9,unit290={cache.size=1},last=2");
    count("corelink-update-few", 100, "merge", [&] {
        for (int i = 0; i < 100; ++i) use(clparse_update(head, change));
    });
    count("corelink-insert", text.size(), "byte", [&] {
        clparse_head *empty = nullptr;
        clparse_init_head(&empty);
        use(clparse_insert(empty, head));
        clparse_stop(empty);
    });
    char *out = nullptr;
    count("corelink-write-text", text.size(), "byte", [&] {
        use(clparse_get_corelink(head, &out, 0));
        release(out);
    });
    count("corelink-write-paths", text.size(), "byte", [&] {
        use(clparse_get_corelink(head, &out, 1));
        release(out);
    });
    count("corelink-write-xml", text.size(), "byte", [&] {
        use(clparse_get_xml(head, &out, 1));
        release(out);
    });
    clparse_stop(change);
    clparse_stop(head);
}

// ---- memory, logging, tunnel
// -----------------------------------------------------------------------

void count_memcheck(const char *name)
{
    constexpr size_t kLive = 1000;
    static void *blocks[kLive];
    count(name, kLive, "pair", [] {
        for (size_t i = 0; i < kLive; ++i)
            blocks[i] =
                vn_memcheck_malloc(malloc, 16 + i % 100, "guard", static_cast<unsigned>(i % 5));
        for (void *const block : blocks) vn_memcheck_free(free, block, "guard:0");
    });
}

void count_log()
{
    vn_log_init("guard", LOG_ERR, 0, LOG_USER, 0);
    count("log-filtered", 1000, "message", [] {
        for (int i = 0; i < 1000; ++i) __vn_log(LOG_DEBUG, "message %d of %s", i, "guard");
    });
    vn_log_exit();
}

void count_remote_gui()
{
    rgui_session *const session = rgui_start_remote(
        [](unsigned char *pdu, size_t, void *) {
            free(pdu);
            return 0;
        },
        nullptr);
    count("remote-gui-pdu", 1000, "PDU", [&] {
        for (unsigned id = 0; id < 1000; ++id) { // connections that are gone already
            const unsigned char close[8] = {3, 0, static_cast<unsigned char>(id & 0xFF),
                                            static_cast<unsigned char>(id >> 8)};
            use(rgui_data_rx(session, close, sizeof close));
        }
    });
    rgui_stop_remote(session);
}

} // namespace

int main(int argc, char **argv)
{
    report = argc > 1 ? std::fopen(argv[1], "w") : nullptr;
    if (report == nullptr) {
        std::fprintf(stderr, "usage: %s FILE [workload...]\n", argv[0]);
        return 2;
    }
    wanted.assign(argv + 2, argv + argc);
    count_bits();
    count_crc32c();
    count_digests();
    count_codecs();
    count_iovec();
    count_tree();
    count_queue();
    count_hash_and_sort();
    count_locks();
    count_strings();
    count_sax();
    count_scsi();
    count_corelink();
    count_log();
    count_remote_gui();
    count_memcheck("memcheck-off");
    if (vn_memcheck_start() != 0) return 1; // to the end: what was allocated before is not released
    count_memcheck("memcheck-on");
    vn_memcheck_stop();
    std::fclose(report);
    return 0;
}
