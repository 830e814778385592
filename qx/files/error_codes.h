// error_codes.h - the one status enumeration of all streams, and errors in words.
//
// A stream keeps the raw error number of its last operation: GetLastError values, errno values, or
// the library's own 38 for a short transfer. `status()` folds that number into FileErrorCodes.
// There are two folds. They differ on purpose: the second belongs to opening a file to be mapped.
//
//     raw number              status_of_error        status_of_open_error
//     0                   =>  FILE_OK                FILE_OK
//     38                  =>  FILE_END_OF_FILE       FILE_END_OF_FILE
//     997                 =>  FILE_PENDING           FILE_PENDING
//     2, 3, 6             =>  FILE_NOT_FOUND         FILE_NOT_FOUND
//     161                 =>  FILE_NOT_FOUND         FILE_UNKNOWN_ERROR
//     183                 =>  FILE_ALREADY_EXISTS    FILE_ALREADY_EXISTS
//     8                   =>  FILE_OUT_OF_MEMORY     FILE_OUT_OF_MEMORY
//     14                  =>  FILE_OUT_OF_MEMORY     FILE_UNKNOWN_ERROR
//     1816                =>  FILE_UNKNOWN_ERROR     FILE_OUT_OF_MEMORY
//     5                   =>  FILE_ACCESS_DENIED     FILE_ACCESS_DENIED
//     13                  =>  FILE_ACCESS_DENIED     FILE_UNKNOWN_ERROR
//     87                  =>  FILE_INVALID_PARAMETER FILE_INVALID_PARAMETER
//     998                 =>  FILE_UNKNOWN_ERROR     FILE_INVALID_PARAMETER
//     123                 =>  FILE_INVALID_NAME      FILE_INVALID_NAME
//     32                  =>  FILE_SHARING_VIOLATION FILE_SHARING_VIOLATION
//     22                  =>  FILE_BAD_COMMAND       FILE_UNKNOWN_ERROR
//     1006                =>  FILE_CORRUPT           FILE_UNKNOWN_ERROR
//     any other           =>  FILE_UNKNOWN_ERROR     FILE_UNKNOWN_ERROR
#pragma once

#include "qx/base/export.h"
#include "qx/text/string.h"

namespace QX {

// The values are fixed; those left out are produced by nothing.
enum FileErrorCodes : int {
    FILE_OK = 0,                  // the last operation went well
    FILE_END_OF_FILE = 1,         // a short transfer: the end was reached
    FILE_PENDING = 2,             // an asynchronous read is in flight
    FILE_NOT_FOUND = 3,           // no such file, path or handle
    FILE_ALREADY_EXISTS = 4,      // something of that name is there
    FILE_OUT_OF_MEMORY = 6,       // the system or the run-time had none
    FILE_ACCESS_DENIED = 7,       // no right to it, or a folder, or write-protected
    FILE_SEEK_OUT_OF_RANGE = 14,  // a seek outside a memory file
    FILE_INVALID_PARAMETER = 19,  // such as an unbuffered read off the sector's grid
    FILE_INVALID_NAME = 20,       // not what the system takes for a name
    FILE_SHARING_VIOLATION = 21,  // somebody else has it open and does not share it
    FILE_BAD_COMMAND = 22,        // the device does not know the operation
    FILE_CORRUPT = 23,            // the volume changed under the open file
    FILE_UNKNOWN_ERROR = 24,      // any other error; its number is in the stream
};

// The folds of the table above.
QX_API FileErrorCodes status_of_error(unsigned int raw);
QX_API FileErrorCodes status_of_open_error(unsigned int raw);

// FILE_UNKNOWN_ERROR for the handle -1, FILE_OK for any other. Asks nothing of the system.
QX_API FileErrorCodes file_status(void* handle);

// Errors in words. They tell of the calling thread's state at this moment, not of a stream.

// "errno = %d which means:\n\n%s\n", with the C library's own words.
QX_API String file_out_last_error();
QX_API String endian_out_last_error();

// "QX::GetLastError() returned %d which means:\n\n%s\n", with the system's own words (which end
// with a line end of their own); empty words for a number that the system does not know.
QX_API String file_in_last_error();
QX_API String async_in_last_error();
QX_API String mem_file_in_last_error();
QX_API String pack_file_last_error();

}  // namespace QX
