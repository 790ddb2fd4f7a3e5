// scsi.cpp - texts of SCSI codes: the tables, and one look-up each.
//
// The long tables are *.tsv beside this file: one row a line, to be read beside T10's lists and
// corrected with any editor. The build turns each into ROW(...) lines, and the compiler turns those
// into lists of text (texts.h) and into indexes, so that no look-up searches a whole table:
//
//     sense code   asc -> its few rows, one of which has the ascq
//     descriptor   code / 128 -> the few rows of four standards
//     all others   the code is the row
//
// Builds for size find the descriptors so, and walk to all other texts.
#include "vnlib/scsi.h"

#include "scsi/texts.h"

namespace vn::scsi {
namespace {

struct Row {
    unsigned code;
    Literal text;
};

// A list of `Size` rows, one for each code from 0; those not in `rows` read `otherwise`.
template <size_t Size, size_t Given>
consteval std::array<Row, Size> by_code(const Row (&rows)[Given], Literal otherwise)
{
    std::array<Row, Size> list;
    for (unsigned code = 0; code < Size; ++code) list[code] = {code, otherwise};
    for (const Row &row : rows) list[row.code] = row;
    return list;
}

// For lists with a row for each code from 0; those behind the last one read what it reads.
template <const auto &kRows>
const char *text_of_code(unsigned code)
{
    if constexpr (kSmall) return walk_to<kRows>(code);
    return text_by_code<kRows>(code);
}

// Whether the keys of `rows` grow from each to the next.
template <typename Rows, typename Key>
consteval bool ascend(const Rows &rows, Key key)
{
    for (size_t i = 1; i < std::size(rows); ++i) {
        if (key(rows[i - 1]) >= key(rows[i])) return false;
    }
    return true;
}

// ---- sense codes ----

constexpr Row kSenseCodes[] = {
#define ROW(asc, ascq, text) {0x##asc##ascq, text},
#include "scsi/asc-ascq.inc"
#undef ROW
    {0xFFFF, "Unknown ASC/ASCQ"}, // what every pair without a row gets
};
static_assert(ascend(kSenseCodes, [](const Row &row) { return row.code; }),
              "asc-ascq.tsv is in ascending order, each pair once");

constexpr size_t kUnknownSenseCode = std::size(kSenseCodes) - 1;

// The ASCs whose qualifier is a number answer, whatever it is, with the text that has their own
// place in the whole list: the first of them with the first text, and so on. Whoever reads our logs
// has always seen these.
constexpr uint8_t kNumberedAscs[] = {
#define ROW(asc, ascq, text) 0x##asc,
#include "scsi/asc-only.inc"
#undef ROW
};
static_assert(kSenseCodes[std::size(kNumberedAscs) - 1].code == std::size(kNumberedAscs) - 1,
              "the first places are the first codes");

unsigned sense_code(unsigned asc, unsigned ascq)
{
    for (unsigned place = 0; place < std::size(kNumberedAscs); ++place) {
        if (asc == kNumberedAscs[place]) return place;
    }
    return asc << 8 | ascq;
}

constexpr size_t kAscs = (kSenseCodes[kUnknownSenseCode - 1].code >> 8) + size_t{1};

// For each ASC, its first row.
consteval std::array<uint16_t, kAscs + 1> first_sense_rows()
{
    std::array<uint16_t, kAscs + 1> first{};
    for (size_t row = 0; row < kUnknownSenseCode; ++row)
        ++first[(kSenseCodes[row].code >> 8) + size_t{1}];
    for (size_t asc = 0; asc < kAscs; ++asc)
        first[asc + 1] = static_cast<uint16_t>(first[asc + 1] + first[asc]);
    return first;
}
constexpr std::array<uint16_t, kAscs + 1> kFirstSenseRow = first_sense_rows();

consteval auto qualifiers()
{
    std::array<uint8_t, kUnknownSenseCode> list{};
    for (size_t row = 0; row < list.size(); ++row)
        list[row] = static_cast<uint8_t>(kSenseCodes[row].code & 0xFF);
    return list;
}
constexpr std::array<uint8_t, kUnknownSenseCode> kQualifiers = qualifiers();

size_t sense_row(unsigned code)
{
    const unsigned asc = code >> 8;
    const auto ascq = static_cast<uint8_t>(code);
    if (asc >= kAscs) return kUnknownSenseCode;
    for (size_t row = kFirstSenseRow[asc]; row < kFirstSenseRow[asc + 1]; ++row) {
        if (kQualifiers[row] == ascq) return row;
    }
    return kUnknownSenseCode;
}

const char *sense_text(unsigned code)
{
    if constexpr (kSmall) return walk_to<kSenseCodes>(code);
    return text_by_number<kSenseCodes>(sense_row(code));
}

// ---- commands ----

constexpr Row kCommands[] = {
#define ROW(code, stored, text) {0x##code, text},
#include "scsi/operation-codes.inc"
#undef ROW
};
consteval bool every_code_has_its_row()
{
    for (size_t code = 0; code < std::size(kCommands); ++code) {
        if (kCommands[code].code != code) return false;
    }
    return std::size(kCommands) == 256;
}
static_assert(every_code_has_its_row(),
              "operation-codes.tsv has a row for each code, in their order");

// ---- sense keys ----

constexpr Row kSenseKeys[] = {
    {0, "NO SENSE"},       {1, "RECOVERED ERROR"},  {2, "NOT_READY"},      {3, "MEDIUM ERROR"},
    {4, "HARDWARE ERROR"}, {5, "ILLEGAL REQUEST"},  {6, "UNIT ATTENTION"}, {7, "DATA PROTECT"},
    {8, "BLANK CHECK"},    {9, "VENDOR SPECIFIC"},  {10, "COPY ABORTED"},  {11, "ABORTED COMMAND"},
    {12, "EQUAL"},         {13, "VOLUME OVERFLOW"}, {14, "MISCOMPARE"},    {15, "SENSE RESERVED"},
};

// Does not exist, but is answered: with what used to follow in memory.
constexpr unsigned kKeyOfACommand = std::size(kSenseKeys);

enum Severity : unsigned { kInformation, kError, kOverflow };

constexpr Severity severity_of(unsigned key)
{
    if (key <= 1 || key == kKeyOfACommand) return kInformation;
    return key == 13 ? kOverflow : kError;
}

// ---- short lists ----

constexpr Row kRevisions[] = {{0, "None"},  {1, "SCSI-1"}, {2, "SCSI-2"}, {3, "SPC"},
                              {4, "SPC-2"}, {5, "SPC-3"},  {6, "SPC-4"},  {7, "Unknown"}};

constexpr auto kDeviceTypes = by_code<33>(
    {
        {0, "Direct access block device"},
        {1, "Sequential-access device"},
        {2, "Printer device"},
        {3, "Processor device"},
        {4, "Write-once device"},
        {5, "CDROM/DVD device"},
        {6, "Scanner device"},
        {7, "Optical memory device"},
        {8, "Media changer device"},
        {9, "Communications device"},
        {12, "Storage array controller device"},
        {13, "Enclosure services device"},
        {14, "Simplified direct-access device"},
        {15, "Optical card reader/writer device"},
        {16, "Bridge controller commands"},
        {17, "Object-based storage device"},
        {18, "Automation/Drive interface device"},
        {19, "Security Manager Device"},
        {30, "Well known logical unit"},
        {31, "Unknown"},
    },
    "Reserved");

constexpr auto kStatuses = by_code<0x42>(
    {
        {0x00, "GOOD"},
        {0x02, "CHECK CONDITION"},
        {0x04, "CONDITION MET"},
        {0x08, "BUSY"},
        {0x10, "INTERMEDIATE"},
        {0x14, "INTERMEDIATE-CONDITION MET"},
        {0x18, "RESERVATION CONFLICT"},
        {0x22, "COMMAND TERMINATED"},
        {0x28, "TASK SET FULL"},
        {0x30, "ACA ACTIVE"},
        {0x40, "TASK ABORTED"},
    },
    "Reserved");

} // namespace
} // namespace vn::scsi

using namespace vn::scsi; // the list is public and has C linkage, its index is ours

// ---- version descriptors ----

constexpr scsi_standard standards_list[] = {
#define ROW(code, text) {0x##code, text},
#include "scsi/version-descriptors.inc"
#undef ROW
};
static_assert(ascend(standards_list, [](const scsi_standard &row) { return row.code; }),
              "version-descriptors.tsv is in ascending order, each code once");

namespace vn::scsi {
namespace {

// T10 gives a standard 32 codes; four standards are a group. Where each group's rows begin:
constexpr size_t kCodesOfAGroup = size_t{4} * 32;
constexpr size_t kGroups = standards_list[std::size(standards_list) - 1].code / kCodesOfAGroup + 1;
consteval std::array<uint16_t, kGroups + 1> first_rows()
{
    std::array<uint16_t, kGroups + 1> first{};
    for (const scsi_standard &row : standards_list) ++first[row.code / kCodesOfAGroup + 1];
    for (size_t group = 0; group < kGroups; ++group)
        first[group + 1] = static_cast<uint16_t>(first[group + 1] + first[group]);
    return first;
}
constexpr std::array<uint16_t, kGroups + 1> kFirstRow = first_rows();

const char *standard_text(uint16_t code)
{
    const size_t group = code / kCodesOfAGroup;
    if (group >= kGroups) return nullptr;
    for (size_t row = kFirstRow[group]; row < kFirstRow[group + 1]; ++row) {
        if (standards_list[row].code == code) return standards_list[row].text;
    }
    return nullptr;
}

} // namespace
} // namespace vn::scsi

const char *get_ascascq_info(unsigned char asc, unsigned char ascq)
{
    return sense_text(sense_code(asc, ascq));
}

const char *get_scsi_standard(uint16_t code)
{
    return standard_text(code);
}

const char *get_scsi_revision(unsigned char version)
{
    return text_of_code<kRevisions>(version);
}

const char *get_device_type(unsigned char type)
{
    return text_of_code<kDeviceTypes>(type);
}

const char *get_status_info(unsigned char status)
{
    return text_of_code<kStatuses>(status);
}

const char *get_condition_info(unsigned char key)
{
    if (key == kKeyOfACommand) return get_command_info(0);
    return key < kKeyOfACommand ? text_of_code<kSenseKeys>(key) : nullptr;
}

unsigned get_condition_severity(unsigned char key)
{
    return severity_of(key);
}

const char *get_command_info(unsigned char opcode)
{
    return text_of_code<kCommands>(opcode);
}
