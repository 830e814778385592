// key_table_impl.h - the scan codes behind the keys.
#pragma once

#include "qx/app/key_table.h"

namespace QX {

constexpr unsigned int key_count = 143;

constexpr bool is_table_key(KEY_TYPE key) {
    return static_cast<unsigned int>(key) < key_count;
}

// The polled device's code of a key that is_table_key.
unsigned char scan_code_from_key(KEY_TYPE key);

}  // namespace QX
