// database_log.h - the interface of a log kept in a database, which this library does not have.
//
// It is for code written against one: everything compiles and links, and nothing is kept. Nothing
// fails. Threads: any.
#pragma once

#include "qx/base/export.h"

namespace QX {

class DBLOG_CORE;

// What a text was written with; refers to its log.
class DBLOG_VALUE_INPUT {
public:
    explicit DBLOG_VALUE_INPUT(DBLOG_CORE& core) : core_(&core) {}

    DBLOG_CORE* core() const { return core_; }

private:
    DBLOG_CORE* core_;
};

// Without fields. Copies are independent of their original.
class DBLOG_CORE {
public:
    QX_API DBLOG_CORE(DBLOG_CORE const& other);
    QX_API DBLOG_CORE& operator=(DBLOG_CORE const& other);
    QX_API ~DBLOG_CORE();

    // Drops the text, which may be null.
    QX_API DBLOG_VALUE_INPUT operator<<(char const* text);

private:
    QX_API explicit DBLOG_CORE(char const* name);

    // 0, always.
    QX_API unsigned int uid();
};

class DBLOG_UID {
public:
    // 0 at load, and nothing here changes it.
    QX_API static unsigned int s_session_uid;
};

}  // namespace QX
