#include "qx/diagnostics/database_log.h"

namespace QX {

unsigned int DBLOG_UID::s_session_uid = 0;

DBLOG_CORE::DBLOG_CORE(char const*) {}

DBLOG_CORE::DBLOG_CORE(DBLOG_CORE const&) {}

DBLOG_CORE& DBLOG_CORE::operator=(DBLOG_CORE const&) {
    return *this;
}

DBLOG_CORE::~DBLOG_CORE() {}

DBLOG_VALUE_INPUT DBLOG_CORE::operator<<(char const*) {
    return DBLOG_VALUE_INPUT(*this);
}

unsigned int DBLOG_CORE::uid() {
    return 0;
}

}  // namespace QX
