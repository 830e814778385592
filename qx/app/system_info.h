// system_info.h - what the system says of itself.
//
// Threads: each record is filled on the first call, which must come before threads race for it. The
// records live as long as the process.
#pragma once

#include "qx/base/export.h"
#include "qx/text/string.h"

struct _SYSTEM_INFO;  // the system's own record

namespace QX {

// The system's extended version record, and a flag of ours behind it.
struct OS_INFO {
    unsigned int record_size;
    unsigned int major_version;
    unsigned int minor_version;
    unsigned int build_number;
    unsigned int platform_id;
    wchar_t service_pack[128];
    unsigned short service_pack_major;
    unsigned short service_pack_minor;
    unsigned short suite_mask;
    unsigned char product_type;
    unsigned char reserved;
    bool ready;  // the system was asked; not that it answered
};

// All zeros but the flag: the system is asked without the record's size, which it refuses. Clients
// must not take the zeros for a version.
QX_API OS_INFO const& os_info();

// Processors, pages and addresses: of the machine itself where the process runs under emulation.
QX_API _SYSTEM_INFO const& system_info();

// Milliseconds since the system started; wraps after 49.7 days.
QX_API unsigned int GetTickCount();

// Kept so that client code links: returns at once.
QX_API void open_external_browser(String const& address);

}  // namespace QX
