/*
 * scsi.h - texts of SCSI codes.
 *
 * Every function returns a constant text of the library's own: never released, valid for as long as
 * the library is loaded. None of them allocates, locks or changes anything, so any thread may call
 * them at any time. The codes and texts are those of T10's lists at the time of SPC-4.
 */
#ifndef VNLIB_SCSI_H
#define VNLIB_SCSI_H

#include "vnlib/base.h"

VN_BEGIN_DECLS

/* One version descriptor: what a device that reports `code` in its INQUIRY data claims to follow.
 */
struct scsi_standard {
    uint16_t code;
    const char *text;
};

/* All version descriptors, in ascending order of their codes; constant. */
VN_API extern const struct scsi_standard standards_list[316];

/*
 * The meaning of an additional sense code and its qualifier, "Unknown ASC/ASCQ" for a pair that is
 * not assigned.
 *
 * Three codes take a number in place of the qualifier. They answer with a text that is not their
 * own, whatever the qualifier: 40h "NO ADDITIONAL SENSE INFORMATION", 4Dh "FILEMARK DETECTED", 70h
 * "END-OF-PARTITION/MEDIUM DETECTED". Programs that read our logs know them so; it stays like that.
 */
VN_API const char *get_ascascq_info(unsigned char asc, unsigned char ascq);

/* The standard that a version descriptor stands for; null for one that is not in standards_list. */
VN_API const char *get_scsi_standard(uint16_t code);

/*
 * The standard that the version byte of INQUIRY data stands for: "None", "SCSI-1", "SCSI-2", "SPC",
 * "SPC-2", "SPC-3", "SPC-4" for 0 to 6, otherwise "Unknown".
 */
VN_API const char *get_scsi_revision(unsigned char version);

/* The name of a peripheral device type (0 to 31); "Reserved" for one without a name or above 31. */
VN_API const char *get_device_type(unsigned char type);

/* The name of a status byte; "Reserved" for one without a name. */
VN_API const char *get_status_info(unsigned char status);

/*
 * The name of a sense key (0 to 15); null above 16. The key 16, which no device sends, is accepted
 * too and answers "TEST UNIT READY".
 */
VN_API const char *get_condition_info(unsigned char key);

/*
 * How bad a sense key is: 0 for information (0, 1, and the odd 16), 2 for VOLUME OVERFLOW (13), 1
 * for an error and for every other value.
 */
VN_API unsigned get_condition_severity(unsigned char key);

/*
 * The name of a command by its operation code, never null. Names that one code has for different
 * device types are joined: "READ(6) / RECIEVE / GET MESSAGE(6)". A code without a command reads
 * "UNKNOWN", "RESERVED" or "VENDOR SPECIFIC".
 */
VN_API const char *get_command_info(unsigned char opcode);

VN_END_DECLS

#endif
