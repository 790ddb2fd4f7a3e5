// corelink_peers.h - documents for the corelink benchmarks, and everyone who reads them.
//
// A document exists in three notations with the same content. Its size is that of the corelink
// text, whoever reads it: rows of one size do the same work.
#pragma once

#include <cstdint>
#include <span>
#include <string>

namespace bench {

struct Document {
    size_t size;
    std::string corelink, json, libconfig;
};

// An array of records with names, numbers, flags, a list and a nested struct. Made once a size.
const Document &records(size_t size);

// A level of `members` numbers and strings in turn, called member0, member1, ...; `first` is the
// number of the first one.
Document level(size_t members, size_t first = 0);

// Structs section0, section1, ... with numbers entry0, entry1, ... in each.
Document sections(size_t count, size_t entries);

// What a reader finds in a document, for comparing.
struct Content {
    size_t containers = 0, texts = 0, flags = 0, text_length = 0;
    uint64_t sum = 0;
    bool operator==(const Content &) const = default;
};

struct Reader {
    const char *name;
    void *(*parse)(const Document &document);
    void (*release)(void *tree);
    Content (*content)(void *tree);
};
std::span<const Reader> readers(); // the library first

// Gives back what earlier rows have left to the allocator, which would sort it in this one's time.
void settle_heap();

// One program is linked from the files below; each registers its rows, after having compared the
// peers' results.
bool parse_agrees();
bool query_agrees();
bool merge_agrees();
bool write_agrees();
void add_parse_rows();
void add_query_rows();
void add_merge_rows();
void add_write_rows();

} // namespace bench
