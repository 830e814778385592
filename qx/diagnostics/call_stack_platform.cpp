#include "qx/diagnostics/call_stack.h"

#include "qx/base/windows.h"

#define PSAPI_VERSION 1  // the query by its own name, not the kernel's alias of it
#include <dbghelp.h>
#include <psapi.h>

#include <cctype>
#include <cstring>
#include <string>

#include "qx/base/compiler.h"

namespace QX::stack {

namespace {

constexpr DWORD symbol_options =
    SYMOPT_DEBUG | SYMOPT_EXACT_SYMBOLS | SYMOPT_LOAD_LINES | SYMOPT_UNDNAME;
static_assert(symbol_options == 0x80000412);

constexpr std::size_t first_text_size = 256;
constexpr std::size_t last_text_size = 16384;
constexpr DWORD name_size = 2000;

constexpr char symbol_folder[] = "Symbols";
constexpr char symbol_server[] = "srv*\\\\symbols\\store";
constexpr std::size_t server_prefix = 3;  // any server entry that ends alike will do

struct State {
    bool mode_is_fixed = false;
    bool deferred = false;
    bool is_loaded = false;
    bool has_symbolicated = false;
};

State state;

// Asks with a buffer that doubles while `query(buffer, size)` fails. Ends at the first zero.
template <typename Query>
std::string growing_text(Query query) {
    std::string text(first_text_size, '\0');
    while (!query(text.data(), static_cast<DWORD>(text.size())) && text.size() < last_text_size)
        text.assign(text.size() * 2, '\0');
    text.resize(strnlen(text.data(), text.size()));
    return text;
}

std::string system_search_path() {
    std::string path = growing_text([](char* buffer, DWORD size) {
        return SymGetSearchPath(GetCurrentProcess(), buffer, size);
    });
    for (char& c : path) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return path;
}

std::string folder_beside_executable() {
    std::string path = growing_text([](char* buffer, DWORD size) {
        DWORD const length = GetModuleFileNameExA(GetCurrentProcess(), nullptr, buffer, size);
        return length != 0 && length < size;  // a name that fills the buffer may have been cut
    });
    std::size_t const last = path.rfind('\\');
    if (last != path.npos) path.resize(last);
    return path + "\\" + symbol_folder;
}

bool add_unless_contained(std::string& path, std::string const& entry, std::size_t looked_from) {
    if (path.find(entry.c_str() + looked_from) != path.npos) return false;
    if (path.empty()) path.push_back('.');
    path += ";" + entry;
    return true;
}

// The folder has a capital and the path has none, so the folder is always added.
bool widen_search_path(std::string& path) {
    bool const folder = add_unless_contained(path, folder_beside_executable(), 0);
    bool const server = add_unless_contained(path, symbol_server, server_prefix);
    return folder || server;
}

bool start_symbols(char const* search_path) {
    return SymInitialize(GetCurrentProcess(), search_path, TRUE);
}

struct NamedSymbol {
    SYMBOL_INFO info;
    char rest_of_name[name_size];
};

bool find_symbol(DWORD64 address, NamedSymbol& symbol) {
    std::memset(&symbol, 0, sizeof symbol);
    symbol.info.SizeOfStruct = sizeof(SYMBOL_INFO);
    symbol.info.MaxNameLen = name_size;
    DWORD64 displacement = 0;
    return SymFromAddr(GetCurrentProcess(), address, &displacement, &symbol.info);
}

void tell_line(DWORD64 address, std::function<void(char*, unsigned int)> const& on_line) {
    IMAGEHLP_LINE64 line = {};
    line.SizeOfStruct = sizeof line;
    DWORD displacement = 0;
    if (SymGetLineFromAddr64(GetCurrentProcess(), address, &displacement, &line))
        on_line(line.FileName, line.LineNumber);
}

void tell_symbol(char const* decorated, std::function<void(char*)> const& on_symbol) {
    char name[name_size];
    if (UnDecorateSymbolName(decorated, name, name_size, 0)) on_symbol(name);
}

// Leaves `base` alone where the address lies in no module.
void tell_module(DWORD64 address, unsigned int& base, std::function<void(char*)> const& on_module) {
    IMAGEHLP_MODULE64 module = {};
    module.SizeOfStruct = sizeof module;
    if (!SymGetModuleInfo64(GetCurrentProcess(), address, &module)) return;
    base = static_cast<unsigned int>(module.BaseOfImage);
    if (on_module) on_module(module.ModuleName);
}

}  // namespace

QX_NOINLINE void trace(std::array<void*, 32>& frames, int frames_to_skip) {
    RtlCaptureStackBackTrace(
        static_cast<DWORD>(frames_to_skip), static_cast<DWORD>(frames.size()), frames.data(),
        nullptr);
    QX_KEEP_FRAME();
}

bool load_symbols(bool deferred) {
    if (!state.mode_is_fixed) {
        state.mode_is_fixed = true;
        state.deferred = deferred;
    }
    if (state.is_loaded) return true;

    SymSetOptions(symbol_options | (state.deferred ? SYMOPT_DEFERRED_LOADS : 0));
    if (!start_symbols(nullptr)) {
        SymCleanup(GetCurrentProcess());
        return false;
    }
    state.is_loaded = true;

    std::string path = system_search_path();
    if (widen_search_path(path)) {
        SymCleanup(GetCurrentProcess());
        state.is_loaded = start_symbols(path.c_str());
    }
    return state.is_loaded;
}

std::array<unsigned int, 32> symbolicate(
    std::array<void*, 32>& frames, std::function<void(char*, unsigned int)> on_line,
    std::function<void(char*)> on_symbol, std::function<void(char*)> on_module,
    std::function<void()> on_frame_end) {
    if (!state.has_symbolicated) {
        state.has_symbolicated = true;
        load_symbols(true);
    }
    std::array<unsigned int, 32> offsets = {};
    unsigned int base = 0;
    for (std::size_t i = 0; i < frames.size() && frames[i] != nullptr; ++i) {
        auto const address = reinterpret_cast<DWORD64>(frames[i]);
        NamedSymbol symbol;
        if ((on_line || on_symbol) && find_symbol(address, symbol)) {
            if (on_line) tell_line(address, on_line);
            if (on_symbol) tell_symbol(symbol.info.Name, on_symbol);
        }
        tell_module(address, base, on_module);
        offsets[i] = static_cast<unsigned int>(address) - base;
        if (on_frame_end) on_frame_end();
    }
    return offsets;
}

}  // namespace QX::stack
