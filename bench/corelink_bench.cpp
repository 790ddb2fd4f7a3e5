// corelink beside what a program could take instead: jansson and cJSON (JSON), libconfig (its own
// notation), libxml2's writer and GLib's GString (XML). libconfig searches a level for each member
// that it appends to it; so the large documents have no wide levels of named members.
#include "bench.h"
#include "corelink_peers.h"

int main(int argc, char **argv)
{
    bench::add_parse_rows();
    bench::add_query_rows();
    bench::add_merge_rows();
    bench::add_write_rows();
    return bench::run(argc, argv, [] {
        return bench::parse_agrees() && bench::query_agrees() && bench::merge_agrees() &&
               bench::write_agrees();
    });
}
