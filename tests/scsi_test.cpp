#include "vnlib/scsi.h"

#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <thread>

namespace {

// ---- the tables as files, read plainly
// -----------------------------------------------------------

struct Row {
    unsigned first;  // hexadecimal
    unsigned second; // hexadecimal or decimal; 0 in a table of two fields
    std::string text;
};

// The rows of a table with `fields` fields; the second one has this base.
std::vector<Row> read_table(const std::string &name, int fields, int base = 16)
{
    std::vector<Row> rows;
    FILE *const file = fopen((VNLIB_SCSI_TABLES "/" + name + ".tsv").c_str(), "r");
    if (file == nullptr) {
        ADD_FAILURE() << "no table " << name;
        return rows;
    }
    char line[512];
    while (fgets(line, sizeof line, file) != nullptr) {
        std::string rest = line;
        if (rest[0] == '#') continue;
        rest.pop_back(); // the line feed
        Row row{};
        row.first = static_cast<unsigned>(strtoul(rest.c_str(), nullptr, 16));
        rest.erase(0, rest.find('\t') + 1);
        if (fields == 3) {
            row.second = static_cast<unsigned>(strtoul(rest.c_str(), nullptr, base));
            rest.erase(0, rest.find('\t') + 1);
        }
        row.text = rest;
        rows.push_back(row);
    }
    fclose(file);
    return rows;
}

// ---- sense codes
// ---------------------------------------------------------------------------------

TEST(ScsiSenseCodes, AnswerAsAWalkThroughTheTableDoesForEveryPair)
{
    const std::vector<Row> rows = read_table("asc-ascq", 3), numbered = read_table("asc-only", 3);
    ASSERT_EQ(rows.size(), 623u);
    ASSERT_EQ(numbered.size(), 3u);
    for (unsigned asc = 0; asc < 256; ++asc) {
        for (unsigned ascq = 0; ascq < 256; ++ascq) {
            const std::string *expected = nullptr;
            for (size_t i = 0; expected == nullptr && i < numbered.size(); ++i) {
                if (numbered[i].first == asc) expected = &rows[i].text;
            }
            for (size_t i = 0; expected == nullptr && i < rows.size(); ++i) {
                if (rows[i].first == asc && rows[i].second == ascq) expected = &rows[i].text;
            }
            const char *const text =
                get_ascascq_info(static_cast<unsigned char>(asc), static_cast<unsigned char>(ascq));
            ASSERT_EQ(text, expected != nullptr ? *expected : "Unknown ASC/ASCQ")
                << std::hex << asc << "/" << ascq;
        }
    }
}

TEST(ScsiSenseCodes, WellKnownOnes)
{
    EXPECT_STREQ(get_ascascq_info(0x00, 0x00), "NO ADDITIONAL SENSE INFORMATION");
    EXPECT_STREQ(get_ascascq_info(0x04, 0x01), "LOGICAL UNIT IS IN PROCESS OF BECOMING READY");
    EXPECT_STREQ(get_ascascq_info(0x29, 0x00), "POWER ON, RESET, OR BUS DEVICE RESET OCCURRED");
    EXPECT_STREQ(get_ascascq_info(0x41, 0x00), "DATA PATH FAILURE (SHOULD USE 40 NN)");
    EXPECT_STREQ(get_ascascq_info(0x42, 0x00), "POWER-ON OR SELF-TEST FAILURE (SHOULD USE 40 NN)");
    EXPECT_STREQ(get_ascascq_info(0x74, 0x79), "SECURITY CONFLICT IN TRANSLATED DEVICE");
}

TEST(ScsiSenseCodes, UnassignedPairsAreUnknown)
{
    EXPECT_STREQ(get_ascascq_info(0x04, 0xEE), "Unknown ASC/ASCQ");
    EXPECT_STREQ(get_ascascq_info(0x74, 0x7A), "Unknown ASC/ASCQ");
    EXPECT_STREQ(get_ascascq_info(0x75, 0x00), "Unknown ASC/ASCQ");
    EXPECT_STREQ(get_ascascq_info(0xFF, 0xFF), "Unknown ASC/ASCQ");
}

TEST(ScsiSenseCodes, NumberedCodesAnswerWithTheFirstTextsOfTheList)
{
    for (unsigned ascq = 0; ascq < 256; ++ascq) {
        const auto number = static_cast<unsigned char>(ascq);
        ASSERT_STREQ(get_ascascq_info(0x40, number), "NO ADDITIONAL SENSE INFORMATION");
        ASSERT_STREQ(get_ascascq_info(0x4D, number), "FILEMARK DETECTED");
        ASSERT_STREQ(get_ascascq_info(0x70, number), "END-OF-PARTITION/MEDIUM DETECTED");
    }
}

// ---- version descriptors
// -------------------------------------------------------------------------

TEST(ScsiStandards, ListHasTheTablesRowsInTheirOrder)
{
    const std::vector<Row> rows = read_table("version-descriptors", 2);
    ASSERT_EQ(rows.size(), 316u);
    EXPECT_EQ(sizeof standards_list / sizeof standards_list[0], 316u);
    for (size_t i = 0; i < rows.size(); ++i) {
        EXPECT_EQ(standards_list[i].code, rows[i].first);
        EXPECT_EQ(standards_list[i].text, rows[i].text);
    }
}

TEST(ScsiStandards, AnswerAsAWalkThroughTheListDoesForEveryDescriptor)
{
    for (unsigned code = 0; code < 0x10000; ++code) {
        const char *expected = nullptr;
        for (const scsi_standard &row : standards_list) {
            if (row.code == code) {
                expected = row.text;
                break;
            }
        }
        ASSERT_EQ(get_scsi_standard(static_cast<uint16_t>(code)), expected) << std::hex << code;
    }
}

TEST(ScsiStandards, WellKnownOnes)
{
    EXPECT_STREQ(get_scsi_standard(0x0000),
                 "Version Descriptor Not Supported or No Standard Identified");
    EXPECT_STREQ(get_scsi_standard(0x0020), "SAM (no version claimed)");
    EXPECT_STREQ(get_scsi_standard(0x003B), "SAM T10/0994-D revision 18");
    EXPECT_STREQ(get_scsi_standard(0x1728), "Universal Serial Bus Specification, Revision 1.1");
    EXPECT_STREQ(get_scsi_standard(0x1EA0), "SAT (no version claimed)");
    EXPECT_STREQ(get_scsi_standard(0x20A0), "SPL (no version claimed)");
    EXPECT_EQ(get_scsi_standard(0x0001), nullptr);
    EXPECT_EQ(get_scsi_standard(0x20A1), nullptr);
    EXPECT_EQ(get_scsi_standard(0xFFFF), nullptr);
}

TEST(ScsiStandards, RecordsLieInMemoryAsDeclared)
{
    EXPECT_EQ(offsetof(scsi_standard, code), 0u);
    EXPECT_EQ(offsetof(scsi_standard, text), sizeof(void *));
    EXPECT_EQ(sizeof(scsi_standard), 2 * sizeof(void *));
}

// ---- commands
// ------------------------------------------------------------------------------------

TEST(ScsiCommands, HaveTheTablesNames)
{
    const std::vector<Row> rows = read_table("operation-codes", 3, 10);
    ASSERT_EQ(rows.size(), 256u);
    for (unsigned code = 0; code < 256; ++code) {
        EXPECT_EQ(rows[code].first, code);
        EXPECT_EQ(get_command_info(static_cast<unsigned char>(code)), rows[code].text)
            << std::hex << code;
    }
}

TEST(ScsiCommands, StoredNumbersAreThePositionsButForTwo)
{
    const std::vector<Row> rows = read_table("operation-codes", 3, 10);
    for (const Row &row : rows) {
        EXPECT_EQ(row.second, row.first == 0x89 ? 153 : row.first == 0x8B ? 155 : row.first);
    }
}

TEST(ScsiCommands, WellKnownOnes)
{
    EXPECT_STREQ(get_command_info(0x00), "TEST UNIT READY");
    EXPECT_STREQ(get_command_info(0x08), "READ(6) / RECIEVE / GET MESSAGE(6)");
    EXPECT_STREQ(get_command_info(0x12), "INQUIRY");
    EXPECT_STREQ(get_command_info(0x25),
                 "READ CAPACITY(10) / READ CAPACITY / READ CARD CAPACITY / GET WINDOW");
    EXPECT_STREQ(get_command_info(0x52), "XDREAD(10) / READ TRACK INFORMATION ");
    EXPECT_STREQ(get_command_info(0x7F), "variable length CDB (more than 16 bytes)");
    EXPECT_STREQ(get_command_info(0x8B), "ORWRITE");
    EXPECT_STREQ(get_command_info(0xA0), "REPORT LUNS");
    EXPECT_STREQ(get_command_info(0xA2), "TRUSTED COMPUTING IN [proposed]");
    EXPECT_STREQ(get_command_info(0xE7), "VENDOR SPECIFIC / INITIALISE E1 WR");
}

// Whether `code` lies in one of the ranges.
bool among(unsigned code, std::initializer_list<std::pair<unsigned, unsigned>> ranges)
{
    for (const auto &[first, last] : ranges) {
        if (first <= code && code <= last) return true;
    }
    return false;
}

TEST(ScsiCommands, CodesWithoutACommandSayWhatTheyAre)
{
    for (unsigned code = 0; code < 256; ++code) {
        const std::string name = get_command_info(static_cast<unsigned char>(code));
        EXPECT_EQ(name == "UNKNOWN", among(code, {{0x1F, 0x1F},
                                                  {0x48, 0x49},
                                                  {0x4F, 0x4F},
                                                  {0x59, 0x59},
                                                  {0x89, 0x89},
                                                  {0x98, 0x9D}}))
            << code;
        EXPECT_EQ(name == "RESERVED", among(code, {{0x60, 0x7E}})) << code;
        EXPECT_EQ(name == "[usage proposed by SCSI Socket Services project]",
                  among(code, {{0x94, 0x97}}))
            << code;
        EXPECT_EQ(name == "VENDOR SPECIFIC", among(code, {{0x02, 0x02},
                                                          {0x06, 0x06},
                                                          {0x09, 0x09},
                                                          {0x0C, 0x0E},
                                                          {0x20, 0x22},
                                                          {0x26, 0x27},
                                                          {0xC0, 0xE6},
                                                          {0xE8, 0xFF}}))
            << code;
    }
}

// ---- short lists
// ---------------------------------------------------------------------------------

TEST(ScsiRevisions, EveryVersionByte)
{
    const char *const names[] = {"None", "SCSI-1", "SCSI-2", "SPC", "SPC-2", "SPC-3", "SPC-4"};
    for (unsigned version = 0; version < 256; ++version) {
        EXPECT_STREQ(get_scsi_revision(static_cast<unsigned char>(version)),
                     version < 7 ? names[version] : "Unknown");
    }
}

TEST(ScsiDeviceTypes, EveryType)
{
    const char *const names[32] = {"Direct access block device",
                                   "Sequential-access device",
                                   "Printer device",
                                   "Processor device",
                                   "Write-once device",
                                   "CDROM/DVD device",
                                   "Scanner device",
                                   "Optical memory device",
                                   "Media changer device",
                                   "Communications device",
                                   "Reserved",
                                   "Reserved",
                                   "Storage array controller device",
                                   "Enclosure services device",
                                   "Simplified direct-access device",
                                   "Optical card reader/writer device",
                                   "Bridge controller commands",
                                   "Object-based storage device",
                                   "Automation/Drive interface device",
                                   "Security Manager Device",
                                   "Reserved",
                                   "Reserved",
                                   "Reserved",
                                   "Reserved",
                                   "Reserved",
                                   "Reserved",
                                   "Reserved",
                                   "Reserved",
                                   "Reserved",
                                   "Reserved",
                                   "Well known logical unit",
                                   "Unknown"};
    for (unsigned type = 0; type < 256; ++type) {
        EXPECT_STREQ(get_device_type(static_cast<unsigned char>(type)),
                     type < 32 ? names[type] : "Reserved")
            << type;
    }
}

TEST(ScsiStatuses, EveryStatusByte)
{
    const auto name = [](unsigned status) {
        switch (status) {
        case 0x00: return "GOOD";
        case 0x02: return "CHECK CONDITION";
        case 0x04: return "CONDITION MET";
        case 0x08: return "BUSY";
        case 0x10: return "INTERMEDIATE";
        case 0x14: return "INTERMEDIATE-CONDITION MET";
        case 0x18: return "RESERVATION CONFLICT";
        case 0x22: return "COMMAND TERMINATED";
        case 0x28: return "TASK SET FULL";
        case 0x30: return "ACA ACTIVE";
        case 0x40: return "TASK ABORTED";
        default: return "Reserved";
        }
    };
    for (unsigned status = 0; status < 256; ++status) {
        EXPECT_STREQ(get_status_info(static_cast<unsigned char>(status)), name(status)) << status;
    }
}

TEST(ScsiSenseKeys, EveryKey)
{
    struct Key {
        const char *name;
        unsigned severity;
    };
    const Key keys[] = {{"NO SENSE", 0},        {"RECOVERED ERROR", 0}, {"NOT_READY", 1},
                        {"MEDIUM ERROR", 1},    {"HARDWARE ERROR", 1},  {"ILLEGAL REQUEST", 1},
                        {"UNIT ATTENTION", 1},  {"DATA PROTECT", 1},    {"BLANK CHECK", 1},
                        {"VENDOR SPECIFIC", 1}, {"COPY ABORTED", 1},    {"ABORTED COMMAND", 1},
                        {"EQUAL", 1},           {"VOLUME OVERFLOW", 2}, {"MISCOMPARE", 1},
                        {"SENSE RESERVED", 1},  {"TEST UNIT READY", 0}};
    for (unsigned key = 0; key < 17; ++key) {
        EXPECT_STREQ(get_condition_info(static_cast<unsigned char>(key)), keys[key].name);
        EXPECT_EQ(get_condition_severity(static_cast<unsigned char>(key)), keys[key].severity)
            << key;
    }
    EXPECT_EQ(get_condition_info(16), get_command_info(0)); // not only the same words
    for (unsigned key = 17; key < 256; ++key) {
        EXPECT_EQ(get_condition_info(static_cast<unsigned char>(key)), nullptr);
        EXPECT_EQ(get_condition_severity(static_cast<unsigned char>(key)), 1u);
    }
}

TEST(ScsiThreads, AllMayLookUpAtOnce)
{
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([] {
            for (unsigned code = 0; code < 0x10000; ++code) {
                const auto high = static_cast<unsigned char>(code >> 8),
                           low = static_cast<unsigned char>(code);
                EXPECT_NE(get_ascascq_info(high, low), nullptr);
                EXPECT_NE(get_command_info(low), nullptr);
            }
        });
    }
    for (std::thread &thread : threads) thread.join();
}

} // namespace
