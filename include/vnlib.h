/*
 * vnlib.h - the whole library in one include.
 *
 * Each family has a header of its own under vnlib/; include just those for quicker builds.
 */
#ifndef VNLIB_H
#define VNLIB_H

#include "vnlib/base.h"

#include "vnlib/log.h"
#include "vnlib/memcheck.h"
#include "vnlib/tellog.h"

#include "vnlib/bits.h"
#include "vnlib/vnstrings.h"

#include "vnlib/corelink.h"
#include "vnlib/corelink_lex.h"

#include "vnlib/hash.h"
#include "vnlib/list_sort.h"
#include "vnlib/queue.h"
#include "vnlib/red_black_tree.h"

#include "vnlib/remote_gui.h"
#include "vnlib/vnsock.h"

#include "vnlib/check_lock.h"

#include "vnlib/base32.h"
#include "vnlib/base64.h"
#include "vnlib/crc32c.h"
#include "vnlib/iovec.h"
#include "vnlib/md5.h"
#include "vnlib/sha1.h"
#include "vnlib/sha256.h"

#include "vnlib/sax.h"
#include "vnlib/scsi.h"

#endif
