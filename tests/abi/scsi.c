#include "check.h"

int main(void)
{
    CHECK_TEXT(get_ascascq_info(0x00, 0x01), "FILEMARK DETECTED");
    CHECK_TEXT(get_ascascq_info(0x04, 0xEE), "Unknown ASC/ASCQ");
    CHECK_TEXT(get_ascascq_info(0x40, 0x85), "NO ADDITIONAL SENSE INFORMATION");
    CHECK_TEXT(get_ascascq_info(0x4D, 0x00), "FILEMARK DETECTED");
    CHECK_TEXT(get_ascascq_info(0x70, 0x03), "END-OF-PARTITION/MEDIUM DETECTED");
    CHECK_TEXT(get_ascascq_info(0x74, 0x79), "SECURITY CONFLICT IN TRANSLATED DEVICE");
    CHECK_TEXT(get_scsi_standard(0x0000),
               "Version Descriptor Not Supported or No Standard Identified");
    CHECK(get_scsi_standard(0xFFFF) == NULL);
    CHECK(standards_list[315].code == 0x20A0);
    CHECK_TEXT(standards_list[315].text, "SPL (no version claimed)");
    CHECK_TEXT(get_scsi_revision(6), "SPC-4");
    CHECK_TEXT(get_scsi_revision(7), "Unknown");
    CHECK_TEXT(get_device_type(0), "Direct access block device");
    CHECK_TEXT(get_device_type(10), "Reserved");
    CHECK_TEXT(get_device_type(31), "Unknown");
    CHECK_TEXT(get_device_type(32), "Reserved");
    CHECK_TEXT(get_status_info(0x02), "CHECK CONDITION");
    CHECK_TEXT(get_status_info(0x01), "Reserved");
    CHECK_TEXT(get_condition_info(2), "NOT_READY");
    CHECK_TEXT(get_condition_info(16), "TEST UNIT READY");
    CHECK(get_condition_info(17) == NULL);
    CHECK(get_condition_severity(13) == 2 && get_condition_severity(16) == 0);
    CHECK(get_condition_severity(17) == 1 && get_condition_severity(0) == 0);
    CHECK_TEXT(get_command_info(0x12), "INQUIRY");
    CHECK_TEXT(get_command_info(0x52), "XDREAD(10) / READ TRACK INFORMATION ");
    CHECK_TEXT(get_command_info(0xFF), "VENDOR SPECIFIC");
    return report("scsi");
}
