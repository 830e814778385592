#include "qx/files/error_codes.h"

#include <cstdint>

namespace QX {

namespace {

struct FoldRow {
    unsigned int raw;
    FileErrorCodes status;
};

constexpr FoldRow status_rows[] = {
    {0, FILE_OK},
    {2, FILE_NOT_FOUND},
    {3, FILE_NOT_FOUND},
    {5, FILE_ACCESS_DENIED},
    {6, FILE_NOT_FOUND},
    {8, FILE_OUT_OF_MEMORY},
    {13, FILE_ACCESS_DENIED},
    {14, FILE_OUT_OF_MEMORY},
    {22, FILE_BAD_COMMAND},
    {32, FILE_SHARING_VIOLATION},
    {38, FILE_END_OF_FILE},
    {87, FILE_INVALID_PARAMETER},
    {123, FILE_INVALID_NAME},
    {161, FILE_NOT_FOUND},
    {183, FILE_ALREADY_EXISTS},
    {997, FILE_PENDING},
    {1006, FILE_CORRUPT},
};

constexpr FoldRow open_rows[] = {
    {0, FILE_OK},
    {2, FILE_NOT_FOUND},
    {3, FILE_NOT_FOUND},
    {5, FILE_ACCESS_DENIED},
    {6, FILE_NOT_FOUND},
    {8, FILE_OUT_OF_MEMORY},
    {32, FILE_SHARING_VIOLATION},
    {38, FILE_END_OF_FILE},
    {87, FILE_INVALID_PARAMETER},
    {123, FILE_INVALID_NAME},
    {183, FILE_ALREADY_EXISTS},
    {997, FILE_PENDING},
    {998, FILE_INVALID_PARAMETER},
    {1816, FILE_OUT_OF_MEMORY},
};

template <unsigned int Count>
FileErrorCodes fold(FoldRow const (&rows)[Count], unsigned int raw) {
    for (FoldRow const& row : rows) {
        if (row.raw == raw) return row.status;
    }
    return FILE_UNKNOWN_ERROR;
}

}  // namespace

FileErrorCodes status_of_error(unsigned int raw) {
    return fold(status_rows, raw);
}

FileErrorCodes status_of_open_error(unsigned int raw) {
    return fold(open_rows, raw);
}

FileErrorCodes file_status(void* handle) {
    return reinterpret_cast<std::intptr_t>(handle) == -1 ? FILE_UNKNOWN_ERROR : FILE_OK;
}

}  // namespace QX
