#include "qx/files/file_streams_impl.h"

#include <cerrno>
#include <cstdio>
#include <sys/stat.h>

#include <algorithm>
#include <utility>

#include "qx/base/compiler.h"

namespace QX {

namespace {

FileOpenHook out_open_hook = nullptr;
void* out_open_user = nullptr;

int origin_of(long long position) {
    return position < 0 ? SEEK_END : SEEK_SET;
}

bool fill(FileInf& record, struct _stat64 const& found) {
    // A folder passes by its read bit alone.
    if (!(found.st_mode & (_S_IFREG | _S_IREAD))) return false;
    record.size = static_cast<unsigned long long>(found.st_size);
    record.time = static_cast<unsigned int>(found.st_mtime);
    record.readable = found.st_mode & _S_IREAD;
    record.writable = found.st_mode & _S_IWRITE;
    record.directory = found.st_mode & _S_IFDIR;
    return true;
}

}  // namespace

FileOut::~FileOut() {
    if (file_) close();
    error_ = closed_error;
    QX_KEEP_STORES();
}

bool FileOut::finish_open(_iobuf* file) {
    file_ = file;
    error_ = file ? 0 : static_cast<unsigned int>(errno);
    return file != nullptr;
}

bool FileOut::open(char const* name, bool append, bool) {
    if (file_) close();
    return finish_open(std::fopen(name, append ? "abS" : "wbS"));
}

bool FileOut::open(wchar_t const* name, bool append, bool) {
    if (file_) close();
    return finish_open(_wfopen(name, append ? L"abS" : L"wbS"));
}

bool FileOut::close() {
    if (!file_) return false;
    error_ = std::fclose(file_) == 0 ? 0 : static_cast<unsigned int>(errno);
    file_ = nullptr;
    return error_ == 0;
}

bool FileOut::flush() {
    if (std::fflush(file_) == 0) return true;
    error_ = static_cast<unsigned int>(file_ ? std::ferror(file_) : EINVAL);
    return false;
}

unsigned int FileOut::write(void const* data, unsigned int bytes) {
    if (!file_) {
        error_ = EINVAL;
        return 0;
    }
    auto const written = static_cast<unsigned int>(std::fwrite(data, 1, bytes, file_));
    if (written < bytes) {
        error_ =
            std::feof(file_) ? end_of_file_error : static_cast<unsigned int>(std::ferror(file_));
    }
    return written;
}

bool FileOut::seek(int position) {
    return seek64(position);
}

bool FileOut::seek64(long long position) {
    bool const moved = file_ && _fseeki64(file_, position, origin_of(position)) == 0;
    error_ = moved ? 0 : static_cast<unsigned int>(file_ ? errno : EINVAL);
    return error_ == 0;
}

unsigned int FileOut::tell() const {
    long const position = file_ ? std::ftell(file_) : -1;
    error_ = position != -1 ? 0 : static_cast<unsigned int>(file_ ? errno : EINVAL);
    return static_cast<unsigned int>(position);
}

unsigned long long FileOut::tell64() const {
    long long const position = file_ ? _ftelli64(file_) : -1;
    error_ = position != -1 ? 0 : static_cast<unsigned int>(file_ ? errno : EINVAL);
    return static_cast<unsigned long long>(position);
}

FileOpenHook FileOut::hook_open(FileOpenHook fn, void* user, void** old_user) {
    if (old_user) *old_user = out_open_user;
    out_open_user = user;
    return std::exchange(out_open_hook, fn);
}

bool EndianOut::open(bool swap, char const* name, bool append) {
    swap_ = swap;
    return FileOut::open(name, append, true);
}

unsigned int EndianOut::write_value(void const* value, unsigned int bytes) {
    if (!swap_) return write(value, bytes);
    char reversed[16];
    auto const first = static_cast<char const*>(value);
    std::reverse_copy(first, first + bytes, reversed);
    return write(reversed, bytes);
}

unsigned int EndianOut::write2(void const* value) {
    return write_value(value, 2);
}

unsigned int EndianOut::write4(void const* value) {
    return write_value(value, 4);
}

unsigned int EndianOut::write8(void const* value) {
    return write_value(value, 8);
}

unsigned int EndianOut::write16(void const* value) {
    return write_value(value, 16);
}

FileIn& operator>>(FileIn& file, String& text) {
    unsigned short length = 0;
    file.read(&length, sizeof length);
    text.clear();
    text.resize(length);
    if (length) file.read(&text[0u], length);
    return file;
}

bool FileInf::stat(char const* name) {
    struct _stat64 found = {};
    return _stat64(name, &found) == 0 && fill(*this, found);
}

bool FileInf::stat(wchar_t const* name) {
    struct _stat64 found = {};
    return _wstat64(name, &found) == 0 && fill(*this, found);
}

}  // namespace QX
